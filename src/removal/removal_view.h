#pragma once
// The collector's face during a removal pass: animations, the library popups, the
// Remove/Stop button and the end views. The desktop application draws them; the command
// line and the tests give their own implementation. Every call comes on the main thread.
// The defaults do nothing, so a face implements only what it shows.

#include <cstdint>
#include <string>

#include "engine/node.h"

namespace corvel {

enum class LibraryKind { Photos, Music };

class CVRemovalView {
public:
    virtual ~CVRemovalView() = default;

    // The Remove/Stop button's title and tool tip (localised texts).
    virtual void setRemoveButton(const std::string& /*title*/, const std::string& /*toolTip*/) {}
    // The window's close button and the other buttons while a pass runs.
    virtual void setCloseButtonEnabled(bool /*enabled*/) {}
    virtual void setButtonsEnabled(bool /*enabled*/) {}
    // The scan window's state (9 removing, 10 removal finished, 8 collector).
    virtual void setWindowState(std::int32_t /*state*/) {}

    virtual void startShredderAnimation() {}
    // One progress tick: handled files so far of the marked total.
    virtual void advanceShredderAnimation(std::uint64_t /*handled*/, std::uint64_t /*total*/) {}
    virtual void closeShredderAnimation() {}
    virtual void endShredderAnimations() {}

    virtual void showLibraryPopup(LibraryKind /*kind*/) {}
    virtual void hideLibraryPopup(LibraryKind /*kind*/) {}

    // A file was handled: removed (ok) or failed with the reason.
    virtual void fileHandled(const CVFile& /*file*/, bool /*ok*/, const std::string& /*reason*/) {}

    // The end of a pass: the Done button's tool tip, then the success view or the
    // error list with its "TextFieldString_TotalUndeletedSize" text.
    virtual void setDoneButtonToolTip(const std::string& /*toolTip*/) {}
    virtual void showSuccessView() {}
    virtual void showErrorList(const std::string& /*undeletedSizeText*/) {}
    // A stopped pass: the lists are sorted again and the collector recounts.
    virtual void reloadCollector() {}
    // The user notification of the size cleaned.
    virtual void postCleanedNotification(std::uint64_t /*bytes*/) {}
};

} // namespace corvel

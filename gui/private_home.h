#pragma once
// A private home for a run of the desktop application that must not touch the user's
// files (the screenshots, the timed programs): a fresh folder under the temporary folder
// with HOME, the XDG folders, the session bus and the settings file pointed into it.

#include <string>

namespace corvel {

// Makes "<temp>/<label>-XXXXXX" and points the environment and the standard settings
// store into it (settings file: .config/<label>.plist); empty when the folder cannot be
// made. The session bus address names a socket that does not exist, so nothing reaches
// the user's desktop. Call before the QApplication is made; the GUI thread only.
std::string makePrivateHome(const std::string& label);

} // namespace corvel

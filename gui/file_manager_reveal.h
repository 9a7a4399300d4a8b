#pragma once
// FileManagerReveal: shows items in the user's file manager. It asks the session bus's
// org.freedesktop.FileManager1 to ShowItems (the file manager opens the folder with the
// items selected); when no file manager answers within three seconds, or there is no
// session bus, the folder holding the first item is opened with the desktop's default
// application for folders instead. Nothing is ever changed on disk. GUI thread; the
// answer is waited for without blocking the window.

#include <QDBusConnection>
#include <QObject>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/desktop_roles.h"

namespace corvel::gui {

class FileManagerReveal final : public QObject, public FileRevealing {
public:
    explicit FileManagerReveal(QObject* parent = nullptr) : QObject(parent) {}

    void revealInFileManager(const std::vector<std::string>& paths) override;

    // What opens a folder when the file manager does not answer (the tests replace it);
    // by default QDesktopServices::openUrl.
    void setFolderOpener(std::function<void(const std::string& folder)> opener) {
        m_openFolder = std::move(opener);
    }

    // The bus asked for ShowItems (the tests give a private one); by default the session bus.
    void setBus(const QDBusConnection& bus) { m_bus = bus; }

    // The folder that holds the item ("/" for an item at the root).
    static std::string parentFolder(const std::string& path);

private:
    void openParent(const std::string& path);

    std::function<void(const std::string&)> m_openFolder;
    std::optional<QDBusConnection> m_bus;
};

} // namespace corvel::gui

#include "file_manager_reveal.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDesktopServices>
#include <QStringList>
#include <QUrl>

#include "gui_text.h"
#include "platform/system_log.h"

namespace corvel::gui {

namespace {
constexpr int kShowItemsTimeoutMs = 3000;
} // namespace

std::string FileManagerReveal::parentFolder(const std::string& path) {
    std::string trimmed = path;
    while (trimmed.size() > 1 && trimmed.back() == '/')
        trimmed.pop_back();
    const auto slash = trimmed.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : trimmed.substr(0, slash);
}

void FileManagerReveal::openParent(const std::string& path) {
    const std::string folder = parentFolder(path);
    if (m_openFolder) {
        m_openFolder(folder);
        return;
    }
    if (!QDesktopServices::openUrl(fileUrl(folder)))
        systemLogf("Could not open the folder %@", folder);
}

void FileManagerReveal::revealInFileManager(const std::vector<std::string>& paths) {
    if (paths.empty())
        return;
    QDBusConnection bus = m_bus ? *m_bus : QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        openParent(paths.front());
        return;
    }
    QStringList uris;
    for (const auto& path : paths)
        uris << QString::fromUtf8(fileUrl(path).toEncoded());
    QDBusMessage call =
        QDBusMessage::createMethodCall("org.freedesktop.FileManager1", "/org/freedesktop/FileManager1",
                                       "org.freedesktop.FileManager1", "ShowItems");
    call << uris << QString();
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, kShowItemsTimeoutMs), this);
    const std::string first = paths.front();
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, first](QDBusPendingCallWatcher* w) {
        QDBusPendingReply<> reply = *w;
        if (reply.isError()) {
            systemLogf("The file manager did not show the items: %@", reply.error().message().toStdString());
            openParent(first);
        }
        w->deleteLater();
    });
}

} // namespace corvel::gui

#include "private_home.h"

#include <QDir>
#include <cstdlib>

#include "platform/user_defaults.h"

namespace corvel {

std::string makePrivateHome(const std::string& label) {
    std::string root = QDir::tempPath().toStdString() + "/" + label + "-XXXXXX";
    if (!::mkdtemp(root.data()))
        return {};
    QDir().mkpath(QString::fromStdString(root + "/.config"));
    const std::string settings = root + "/.config/" + label + ".plist";
    ::setenv("HOME", root.c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (root + "/.config").c_str(), 1);
    ::setenv("XDG_DATA_HOME", (root + "/.local/share").c_str(), 1);
    ::setenv("XDG_STATE_HOME", (root + "/.local/state").c_str(), 1);
    ::setenv("XDG_CACHE_HOME", (root + "/.cache").c_str(), 1);
    ::setenv("XDG_RUNTIME_DIR", root.c_str(), 1);
    ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + root + "/no-bus").c_str(), 1);
    ::setenv("CORVEL_SETTINGS", settings.c_str(), 1);
    UserDefaults::setStandardPath(settings);
    return root;
}

} // namespace corvel

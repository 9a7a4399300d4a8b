// Every test program runs with its own home, configuration, data and state folders and
// settings file, made before any test (and before any shared instance reads them), so
// tests never touch the real account's files and parallel test processes never share a
// file. The session bus is a socket that does not exist, so no test (nor a corvel it
// runs) reaches the account's desktop; tests that need a bus start their own.

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/user_defaults.h"

namespace corvel::test {
namespace {

struct IsolatedEnvironment {
    IsolatedEnvironment() {
        const char* tmp = std::getenv("TMPDIR");
        std::string root = std::string(tmp && *tmp ? tmp : "/tmp") + "/corvel-home-XXXXXX";
        if (!::mkdtemp(root.data()))
            return;
        m_root = root;
        m_owner = ::getpid();
        const std::string config = root + "/.config";
        ::mkdir(config.c_str(), 0700);
        ::setenv("HOME", root.c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", config.c_str(), 1);
        ::setenv("XDG_DATA_HOME", (root + "/.local/share").c_str(), 1);
        ::setenv("XDG_STATE_HOME", (root + "/.local/state").c_str(), 1);
        ::setenv("XDG_RUNTIME_DIR", (root + "/run").c_str(), 1);
        ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + root + "/no-session-bus").c_str(), 1);
        ::setenv("CORVEL_SETTINGS", (config + "/corvel-test.plist").c_str(), 1);
        UserDefaults::setStandardPath(config + "/corvel-test.plist");
    }

    // The folders go with the test program; a child process it forked (to run code as
    // another user, or to be killed) ends without taking them.
    ~IsolatedEnvironment() {
        if (m_root.empty() || ::getpid() != m_owner)
            return;
        std::error_code ignored;
        std::filesystem::permissions(m_root, std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, ignored);
        std::filesystem::remove_all(m_root, ignored);
    }

    std::string m_root;
    pid_t m_owner = 0;
};

const IsolatedEnvironment g_environment;

} // namespace
} // namespace corvel::test

#include "resources.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "file_io.h"

#ifndef CORVEL_INSTALL_RESOURCE_DIR
#define CORVEL_INSTALL_RESOURCE_DIR ""
#endif

namespace corvel {

namespace {

std::string executableDirectory() {
    char buffer[4096];
    const ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (n <= 0)
        return {};
    return parentPath(std::string(buffer, static_cast<std::size_t>(n)));
}

constexpr std::array<std::string_view, 4> kRequired = {
    "IgnoreList.plist", "TypeIdentifiers.json", "ScanTextScenarios.plist", "en.lproj/Localizable.strings"};

// "" when path is a regular file this process can open for reading, else the reason.
std::string unreadableReason(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0)
        return std::strerror(errno);
    if (!S_ISREG(info.st_mode))
        return "not a regular file";
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return std::strerror(errno);
    ::close(fd);
    return {};
}

} // namespace

const std::string& resourceDirectory() {
    static const std::string dir = [] {
        if (const char* env = std::getenv("CORVEL_RESOURCES"); env && *env)
            return std::string(env);
        const std::string exe = executableDirectory();
        if (!exe.empty()) {
            std::string beside = parentPath(exe) + "/share/corvel";
            if (isDirectory(beside))
                return beside;
        }
        if (isDirectory(CORVEL_INSTALL_RESOURCE_DIR))
            return std::string(CORVEL_INSTALL_RESOURCE_DIR);
        return std::string();
    }();
    return dir;
}

std::string resourcePath(std::string_view relative) {
    return resourceDirectory() + "/" + std::string(relative);
}

bool checkResources(const std::string& directory, std::string* error) {
    if (directory.empty()) {
        if (error)
            *error = std::string("no resource folder found (share/corvel beside the program's bin folder, ") +
                     (*CORVEL_INSTALL_RESOURCE_DIR ? CORVEL_INSTALL_RESOURCE_DIR ", " : "") +
                     "or $CORVEL_RESOURCES)";
        return false;
    }
    for (const std::string_view name : kRequired) {
        const std::string path = directory + "/" + std::string(name);
        if (std::string reason = unreadableReason(path); !reason.empty()) {
            if (error)
                *error = "cannot read the resource " + path + ": " + reason;
            return false;
        }
    }
    return true;
}

} // namespace corvel

#include "resources.h"

#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

#include "file_io.h"

#ifndef CORVEL_SOURCE_RESOURCE_DIR
#define CORVEL_SOURCE_RESOURCE_DIR ""
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

} // namespace

const std::string& resourceDirectory() {
    static const std::string dir = [] {
        if (const char* env = std::getenv("CORVEL_RESOURCES"); env && isDirectory(env))
            return std::string(env);
        const std::string exe = executableDirectory();
        if (!exe.empty()) {
            const std::string beside = parentPath(exe) + "/share/corvel";
            if (isDirectory(beside))
                return beside;
        }
        return std::string(CORVEL_SOURCE_RESOURCE_DIR);
    }();
    return dir;
}

std::string resourcePath(std::string_view relative) {
    return resourceDirectory() + "/" + std::string(relative);
}

} // namespace corvel

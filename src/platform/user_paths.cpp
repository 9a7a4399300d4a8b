#include "user_paths.h"

#include <cstdlib>
#include <fstream>
#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace corvel {

namespace {

bool passwordEntry(std::string* home, std::string* name) {
    long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? static_cast<std::size_t>(size) : 16384);
    struct passwd entry {};
    struct passwd* result = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &result) != 0 || !result)
        return false;
    if (home)
        *home = result->pw_dir ? result->pw_dir : "";
    if (name)
        *name = result->pw_name ? result->pw_name : "";
    return true;
}

std::string absoluteEnv(const char* name) {
    const char* value = std::getenv(name);
    return value && value[0] == '/' ? std::string(value) : std::string();
}

struct DirectoryKey {
    const char* variable;
    const char* fallback;
};

DirectoryKey keyFor(UserDirectory kind) {
    switch (kind) {
    case UserDirectory::Desktop:
        return {"XDG_DESKTOP_DIR", "Desktop"};
    case UserDirectory::Documents:
        return {"XDG_DOCUMENTS_DIR", "Documents"};
    case UserDirectory::Downloads:
        return {"XDG_DOWNLOAD_DIR", "Downloads"};
    case UserDirectory::Music:
        return {"XDG_MUSIC_DIR", "Music"};
    case UserDirectory::Pictures:
        return {"XDG_PICTURES_DIR", "Pictures"};
    case UserDirectory::Videos:
        return {"XDG_VIDEOS_DIR", "Videos"};
    case UserDirectory::Templates:
        return {"XDG_TEMPLATES_DIR", "Templates"};
    case UserDirectory::PublicShare:
        return {"XDG_PUBLICSHARE_DIR", "Public"};
    }
    return {"", ""};
}

std::string trimTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

} // namespace

std::string realHomeDirectory() {
    std::string home;
    if (passwordEntry(&home, nullptr) && !home.empty())
        return trimTrailingSlashes(home);
    return "/";
}

std::string homeDirectory() {
    const std::string home = absoluteEnv("HOME");
    return home.empty() ? realHomeDirectory() : trimTrailingSlashes(home);
}

std::string accountName() {
    std::string name;
    passwordEntry(nullptr, &name);
    return name;
}

std::string expandTilde(std::string_view path) {
    if (path == "~")
        return homeDirectory();
    if (path.starts_with("~/"))
        return homeDirectory() + std::string(path.substr(1));
    return std::string(path);
}

std::string xdgConfigHome() {
    const std::string dir = absoluteEnv("XDG_CONFIG_HOME");
    return dir.empty() ? homeDirectory() + "/.config" : trimTrailingSlashes(dir);
}

std::string xdgDataHome() {
    const std::string dir = absoluteEnv("XDG_DATA_HOME");
    return dir.empty() ? homeDirectory() + "/.local/share" : trimTrailingSlashes(dir);
}

std::string xdgStateHome() {
    const std::string dir = absoluteEnv("XDG_STATE_HOME");
    return dir.empty() ? homeDirectory() + "/.local/state" : trimTrailingSlashes(dir);
}

std::string userDirectoryFromFile(UserDirectory kind, const std::string& userDirsFile,
                                  const std::string& home) {
    const DirectoryKey key = keyFor(kind);
    std::string fallback = home + "/" + key.fallback;
    std::ifstream in(userDirsFile);
    std::string line;
    std::string found;
    // Lines look like XDG_DOWNLOAD_DIR="$HOME/Downloads" or ="/absolute/path"; the last one wins.
    while (std::getline(in, line)) {
        const auto eq = line.find('=');
        if (line.empty() || line[0] == '#' || eq == std::string::npos ||
            line.compare(0, eq, key.variable) != 0)
            continue;
        std::string value = line.substr(eq + 1);
        if (value.size() < 2 || value.front() != '"' || value.back() != '"')
            continue;
        value = value.substr(1, value.size() - 2);
        std::string unescaped;
        for (std::size_t i = 0; i < value.size(); ++i) {
            if (value[i] == '\\' && i + 1 < value.size())
                ++i;
            unescaped += value[i];
        }
        if (unescaped.starts_with("$HOME"))
            unescaped = home + unescaped.substr(5);
        if (unescaped.empty() || unescaped[0] != '/')
            continue;
        found = trimTrailingSlashes(unescaped);
    }
    if (found.empty() || found == trimTrailingSlashes(home))
        return fallback;
    return found;
}

std::string userDirectory(UserDirectory kind) {
    return userDirectoryFromFile(kind, xdgConfigHome() + "/user-dirs.dirs", homeDirectory());
}

} // namespace corvel

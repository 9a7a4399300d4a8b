#include "support/temp_tree.h"

#include <cstdlib>
#include <fstream>
#include <ftw.h>
#include <sstream>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/file_access.h"
#include "platform/file_io.h"

namespace corvel::test {

namespace {

int removeEntry(const char* path, const struct stat* /*st*/, int /*flag*/, struct FTW* /*ftw*/) {
    CVError ignored;
    if (isImmutable(path).value_or(false))
        (void)setImmutable(path, false, &ignored); // best effort: a file still locked stays behind
    ::chmod(path, 0700);
    ::remove(path);
    return 0;
}

int unlockEntry(const char* path, const struct stat* st, int /*flag*/, struct FTW* /*ftw*/) {
    if (S_ISDIR(st->st_mode)) {
        CVError ignored;
        if (isImmutable(path).value_or(false))
            (void)setImmutable(path, false, &ignored); // as in removeEntry
        ::chmod(path, 0700);
    }
    return 0;
}

} // namespace

TempTree::TempTree() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/corvel-test-XXXXXX";
    if (!::mkdtemp(pattern.data()))
        throw std::runtime_error("mkdtemp failed");
    m_root = pattern;
}

TempTree::~TempTree() {
    ::nftw(m_root.c_str(), unlockEntry, 32, FTW_PHYS);
    ::nftw(m_root.c_str(), removeEntry, 32, FTW_DEPTH | FTW_PHYS);
}

std::string TempTree::file(std::string_view relative, std::string_view contents) const {
    std::string path = *this / relative;
    if (!makeDirectories(parentPath(path), nullptr))
        throw std::runtime_error("cannot create " + parentPath(path));
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
    if (!out)
        throw std::runtime_error("cannot write " + path);
    return path;
}

std::string TempTree::folder(std::string_view relative) const {
    std::string path = *this / relative;
    if (!makeDirectories(path, nullptr))
        throw std::runtime_error("cannot create " + path);
    return path;
}

std::string TempTree::socket(std::string_view relative) const {
    std::string path = *this / relative;
    sockaddr_un address{};
    if (path.size() >= sizeof(address.sun_path))
        throw std::runtime_error("too long for a socket: " + path);
    if (!makeDirectories(parentPath(path), nullptr))
        throw std::runtime_error("cannot create " + parentPath(path));
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    const bool bound = fd >= 0 && ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
    if (fd >= 0)
        ::close(fd);
    if (!bound)
        throw std::runtime_error("cannot bind a socket at " + path);
    return path;
}

std::string TempTree::symlink(std::string_view relative, std::string_view target) const {
    std::string path = *this / relative;
    if (!makeDirectories(parentPath(path), nullptr))
        throw std::runtime_error("cannot create " + parentPath(path));
    if (::symlink(std::string(target).c_str(), path.c_str()) != 0)
        throw std::runtime_error("cannot link " + path);
    return path;
}

std::string TempTree::read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

} // namespace corvel::test

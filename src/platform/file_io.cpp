#include "file_io.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace corvel {

namespace {

void syncDirectory(const std::string& dir) {
    const int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

} // namespace

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t n = ::write(fd, bytes.data(), bytes.size());
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
}

bool pathExists(const std::string& path, bool followLinks) {
    struct stat st {};
    return (followLinks ? ::stat(path.c_str(), &st) : ::lstat(path.c_str(), &st)) == 0;
}

bool isDirectory(const std::string& path) {
    struct stat st {};
    return !path.empty() && ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

ReadOnlyFile::ReadOnlyFile(const std::string& path, bool followLink)
    : m_fd(::open(path.c_str(),
                  O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | (followLink ? 0 : O_NOFOLLOW))) {}

ReadOnlyFile::~ReadOnlyFile() {
    if (m_fd >= 0)
        ::close(m_fd);
}

std::string parentPath(std::string_view path) {
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    const auto slash = path.rfind('/');
    if (slash == std::string_view::npos)
        return ".";
    if (slash == 0)
        return "/";
    return std::string(path.substr(0, slash));
}

std::string lastPathComponent(std::string_view path) {
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    const auto slash = path.rfind('/');
    if (slash == std::string_view::npos || path == "/")
        return std::string(path);
    return std::string(path.substr(slash + 1));
}

namespace {

CVError tooLarge(const std::string& path, std::size_t maxBytes) {
    CVError error(kCorvelFileErrorDomain, EFBIG,
                  "File " + path + " is larger than " + std::to_string(maxBytes) + " bytes");
    error.userInfo[kFilePathErrorKey] = path;
    return error;
}

CVError cancelled(const std::string& path) {
    CVError error(kCorvelFileErrorDomain, ECANCELED, "Reading " + path + " was stopped");
    error.userInfo[kFilePathErrorKey] = path;
    return error;
}

} // namespace

bool readRegularFileChunks(const std::string& path, const RegularFileRead& how,
                           const std::function<bool(std::string_view)>& consume, CVError* error) {
    const ReadOnlyFile file(path, how.followLink);
    if (!file.valid()) {
        setError(error, posixError(errno, path, "Cannot open"));
        return false;
    }
    struct stat st {};
    if (::fstat(file.fd(), &st) != 0) {
        setError(error, posixError(errno, path, "Cannot examine"));
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        CVError notRegular(kCorvelFileErrorDomain, EINVAL,
                           path + (S_ISDIR(st.st_mode) ? " is a folder" : " is not a regular file"));
        notRegular.userInfo[kFilePathErrorKey] = path;
        setError(error, std::move(notRegular));
        return false;
    }
    if (static_cast<std::uint64_t>(st.st_size) > how.maxBytes) {
        setError(error, tooLarge(path, how.maxBytes));
        return false;
    }
    // The descriptor is a regular file: reads never wait on a writer, O_NONBLOCK or not.
    std::size_t total = 0;
    char buffer[65536];
    for (;;) {
        if (how.shouldStop && how.shouldStop()) {
            setError(error, cancelled(path));
            return false;
        }
        const ssize_t n = ::read(file.fd(), buffer, sizeof buffer);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            setError(error, posixError(errno, path, "Cannot read"));
            return false;
        }
        if (n == 0)
            return true;
        total += static_cast<std::size_t>(n);
        if (total > how.maxBytes) { // grew since the check
            setError(error, tooLarge(path, how.maxBytes));
            return false;
        }
        if (!consume(std::string_view(buffer, static_cast<std::size_t>(n)))) {
            setError(error, cancelled(path));
            return false;
        }
    }
}

bool readRegularFile(const std::string& path, std::string& out, const RegularFileRead& how, CVError* error) {
    out.clear();
    const bool read = readRegularFileChunks(
        path, how,
        [&](std::string_view chunk) {
            out.append(chunk);
            return true;
        },
        error);
    if (!read)
        out.clear();
    return read;
}

bool readFileContents(const std::string& path, std::string& out, std::size_t maxBytes, CVError* error) {
    RegularFileRead how;
    how.maxBytes = maxBytes;
    return readRegularFile(path, out, how, error);
}

bool writeFileAtomically(const std::string& path, std::string_view bytes, CVError* error) {
    std::string temp = path + ".tmp-XXXXXX";
    const int fd = ::mkstemp(temp.data());
    if (fd < 0) {
        setError(error, posixError(errno, temp, "Cannot create"));
        return false;
    }
    struct stat old {};
    const mode_t mode = ::stat(path.c_str(), &old) == 0 ? (old.st_mode & 07777) : 0600;
    ::fchmod(fd, mode);
    if (!writeAll(fd, bytes) || ::fsync(fd) != 0) {
        const int saved = errno;
        ::close(fd);
        ::unlink(temp.c_str());
        setError(error, posixError(saved, temp, "Cannot write"));
        return false;
    }
    if (::close(fd) != 0 || ::rename(temp.c_str(), path.c_str()) != 0) {
        const int saved = errno;
        ::unlink(temp.c_str());
        setError(error, posixError(saved, path, "Cannot replace"));
        return false;
    }
    syncDirectory(parentPath(path));
    return true;
}

bool makeDirectories(const std::string& path, CVError* error) {
    struct stat st {};
    if (::stat(path.c_str(), &st) == 0) {
        if (S_ISDIR(st.st_mode))
            return true;
        setError(error, posixError(ENOTDIR, path, "Cannot create folder"));
        return false;
    }
    const std::string parent = parentPath(path);
    if (parent != path && parent != "." && !makeDirectories(parent, error))
        return false;
    if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
        setError(error, posixError(errno, path, "Cannot create folder"));
        return false;
    }
    return true;
}

} // namespace corvel

#include "file_io.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
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

// The process's umask, from /proc/self/status (reading it with umask(2) would change it
// for a moment under every other thread); 077 when it cannot be read.
mode_t currentUmask() {
    std::string status;
    if (readFileContents("/proc/self/status", status, 1 << 16, nullptr)) {
        if (const auto at = status.find("\nUmask:\t"); at != std::string::npos)
            return static_cast<mode_t>(std::strtoul(status.c_str() + at + 8, nullptr, 8) & 0777);
    }
    return 077;
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

std::optional<std::string> canonicalPath(const std::string& path) {
    char resolved[PATH_MAX];
    if (!::realpath(path.c_str(), resolved))
        return std::nullopt;
    return std::string(resolved);
}

std::optional<std::string> placeOfOpenFolder(int fd) {
    char place[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t length = ::readlink(link.c_str(), place, sizeof place);
    // Anything but an absolute path (a removed folder reads "... (deleted)", which an
    // existing path may end with too, so such a folder is checked) is no place.
    if (length <= 0 || static_cast<std::size_t>(length) >= sizeof place || place[0] != '/')
        return std::nullopt;
    std::string found(place, static_cast<std::size_t>(length));
    struct stat opened {};
    struct stat atPlace {};
    if (::fstat(fd, &opened) != 0 || opened.st_nlink == 0 || ::stat(found.c_str(), &atPlace) != 0 ||
        opened.st_dev != atPlace.st_dev || opened.st_ino != atPlace.st_ino)
        return std::nullopt;
    return found;
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

bool writeFileAtomically(const std::string& path, std::string_view bytes, CVError* error,
                         unsigned newFileMode) {
    std::string temp = path + ".tmp-XXXXXX";
    const int fd = ::mkstemp(temp.data());
    if (fd < 0) {
        setError(error, posixError(errno, path, "Cannot create a temporary file beside"));
        return false;
    }
    // Held while writing: a clean-up in another process leaves a locked temporary alone.
    ::flock(fd, LOCK_EX | LOCK_NB);
    struct stat old {};
    const mode_t mode = ::stat(path.c_str(), &old) == 0 ? (old.st_mode & 07777) : (newFileMode & 07777);
    ::fchmod(fd, mode);
    if (!writeAll(fd, bytes) || ::fsync(fd) != 0) {
        const int saved = errno;
        ::close(fd);
        ::unlink(temp.c_str());
        setError(error, posixError(saved, path, "Cannot write"));
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

namespace {

constexpr std::string_view kTemporaryInfix = ".tmp-";
constexpr std::size_t kTemporarySuffixLength = 6; // mkstemp's XXXXXX

bool isTemporaryName(std::string_view entry, std::string_view base) {
    if (entry.size() != base.size() + kTemporaryInfix.size() + kTemporarySuffixLength ||
        !entry.starts_with(base) || entry.substr(base.size(), kTemporaryInfix.size()) != kTemporaryInfix)
        return false;
    const std::string_view suffix = entry.substr(base.size() + kTemporaryInfix.size());
    return std::all_of(suffix.begin(), suffix.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    });
}

} // namespace

std::vector<std::string> removeStaleTemporaries(const std::string& path, std::chrono::seconds minimumAge) {
    std::vector<std::string> removed;
    const std::string folder = parentPath(path);
    const std::string base = lastPathComponent(path);
    const int dirFd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd < 0)
        return removed;
    const int listFd = ::dup(dirFd);
    DIR* dir = listFd >= 0 ? ::fdopendir(listFd) : nullptr;
    if (!dir) {
        if (listFd >= 0)
            ::close(listFd);
        ::close(dirFd);
        return removed;
    }
    const std::time_t latest = std::time(nullptr) - static_cast<std::time_t>(minimumAge.count());
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (!isTemporaryName(name, base))
            continue;
        struct stat seen {};
        if (::fstatat(dirFd, name.c_str(), &seen, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(seen.st_mode) ||
            seen.st_uid != ::geteuid() || seen.st_nlink != 1 || seen.st_mtime > latest)
            continue;
        const int fd =
            ::openat(dirFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        if (fd < 0)
            continue;
        struct stat opened {};
        // Still the same file, and no writer holds it.
        if (::fstat(fd, &opened) == 0 && opened.st_dev == seen.st_dev && opened.st_ino == seen.st_ino &&
            ::flock(fd, LOCK_EX | LOCK_NB) == 0 && ::unlinkat(dirFd, name.c_str(), 0) == 0)
            removed.push_back(folder + "/" + name);
        ::close(fd);
    }
    ::closedir(dir);
    ::close(dirFd);
    return removed;
}

bool saveFile(const std::string& path, std::string_view bytes, CVError* error) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) {
        if (errno != ENOENT) {
            setError(error, posixError(errno, path, "Cannot write"));
            return false;
        }
        return writeFileAtomically(path, bytes, error, 0666 & ~currentUmask());
    }
    std::string target = path;
    if (S_ISLNK(st.st_mode)) {
        char resolved[PATH_MAX];
        if (!::realpath(path.c_str(), resolved) || ::stat(resolved, &st) != 0) {
            setError(error, posixError(errno, path, "Cannot follow the link"));
            return false;
        }
        target = resolved;
    }
    if (S_ISREG(st.st_mode))
        return writeFileAtomically(target, bytes, error);
    if (!S_ISFIFO(st.st_mode) && !S_ISCHR(st.st_mode)) {
        setError(error, posixError(S_ISDIR(st.st_mode) ? EISDIR : EINVAL, path, "Cannot write"));
        return false;
    }
    const int fd = ::open(target.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        setError(error, posixError(errno, path, "Cannot open"));
        return false;
    }
    const bool written = writeAll(fd, bytes);
    const int saved = errno;
    ::close(fd);
    if (!written)
        setError(error, posixError(saved, path, "Cannot write"));
    return written;
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

namespace {

// "20250131-142501", local time: when a damaged file was set aside.
std::string timestamp() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &local);
    return text;
}

// Renames from to to unless something is there already; errno tells why not.
bool renameWithoutReplacing(const std::string& from, const std::string& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS)
        return false;
    // File systems without the flag: check first (a race here only costs a retry's name).
    if (pathExists(to, false)) {
        errno = EEXIST;
        return false;
    }
    return std::rename(from.c_str(), to.c_str()) == 0;
}

} // namespace

std::string setAsideDamagedFile(const std::string& path) {
    const std::string base = path + ".corrupt-" + timestamp();
    std::string target = base;
    for (int n = 2; n < 1000; ++n) {
        if (renameWithoutReplacing(path, target))
            return target;
        if (errno != EEXIST)
            return {};
        target = base + "-" + std::to_string(n);
    }
    return {};
}

} // namespace corvel

#include "trash_directory_sizes.h"

#include <cerrno>
#include <charconv>
#include <chrono>
#include <fcntl.h>
#include <fts.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

#include "file_io.h"
#include "percent_encoding.h"
#include "unique_fd.h"

namespace corvel {

namespace {

constexpr const char* kDirectorySizesName = "directorysizes";
constexpr std::size_t kMaxDirectorySizesBytes = 64u << 20;

// "SIZE MTIME NAME" with two decimal numbers; NAME (decoded) is everything after them.
bool parseLine(std::string_view line, std::string& name) {
    const auto first = line.find(' ');
    if (first == std::string_view::npos || first == 0)
        return false;
    const auto second = line.find(' ', first + 1);
    if (second == std::string_view::npos || second == first + 1 || second + 1 >= line.size())
        return false;
    std::uint64_t size = 0;
    std::int64_t time = 0;
    const auto* const sizeEnd = line.data() + first;
    const auto* const timeEnd = line.data() + second;
    if (std::from_chars(line.data(), sizeEnd, size).ptr != sizeEnd ||
        std::from_chars(line.data() + first + 1, timeEnd, time).ptr != timeEnd)
        return false;
    name = percentDecode(line.substr(second + 1));
    return true;
}

bool readAll(int fd, std::string& out) {
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        if (n == 0)
            return true;
        out.append(buffer, static_cast<std::size_t>(n));
        if (out.size() > kMaxDirectorySizesBytes) {
            errno = EFBIG;
            return false;
        }
    }
}

} // namespace

std::uint64_t diskUsageOfTree(const std::string& path) {
    std::string root = path;
    char* const roots[] = {root.data(), nullptr};
    FTS* fts = ::fts_open(roots, FTS_PHYSICAL | FTS_XDEV | FTS_NOCHDIR, nullptr);
    if (!fts)
        return 0;
    std::uint64_t total = 0;
    std::set<std::pair<dev_t, ino_t>> linked;
    while (FTSENT* entry = ::fts_read(fts)) {
        switch (entry->fts_info) {
        case FTS_DP:
        case FTS_NS:
        case FTS_NSOK:
        case FTS_ERR:
        case FTS_DC:
            continue;
        default:
            break;
        }
        const struct stat* st = entry->fts_statp;
        if (!S_ISDIR(st->st_mode) && st->st_nlink > 1 && !linked.emplace(st->st_dev, st->st_ino).second)
            continue;
        total += static_cast<std::uint64_t>(st->st_blocks) * 512u;
    }
    ::fts_close(fts);
    return total;
}

std::string updatedDirectorySizes(std::string_view text, std::string_view name, std::uint64_t size,
                                  std::int64_t infoModificationTime,
                                  const std::function<bool(const std::string& name)>& stillTrashed) {
    std::string out;
    out.reserve(text.size() + name.size() + 32);
    while (!text.empty()) {
        const auto end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line.empty())
            continue;
        std::string lineName;
        if (parseLine(line, lineName) && (lineName == name || !stillTrashed(lineName)))
            continue;
        out.append(line);
        out += '\n';
    }
    out += std::to_string(size) + " " + std::to_string(infoModificationTime) + " " + percentEncodePath(name) +
           "\n";
    return out;
}

bool recordTrashedFolderSize(int trashDirectoryFd, const std::string& trashDirectory, const std::string& name,
                             std::uint64_t size, std::int64_t infoModificationTime, CVError* error) {
    const std::string sizesPath = trashDirectory + "/" + kDirectorySizesName;
    std::string text;
    {
        UniqueFd in(::openat(trashDirectoryFd, kDirectorySizesName, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        if (in.get() < 0 && errno != ENOENT) {
            setError(error, posixError(errno, sizesPath, "Cannot open"));
            return false;
        }
        if (in.get() >= 0 && !readAll(in.get(), text)) {
            setError(error, posixError(errno, sizesPath, "Cannot read"));
            return false;
        }
    }
    UniqueFd files(::openat(trashDirectoryFd, "files", O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const auto stillTrashed = [&](const std::string& entry) {
        struct stat st {};
        return files.get() < 0 || entry.find('/') != std::string::npos ||
               ::fstatat(files.get(), entry.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 || errno != ENOENT;
    };
    const std::string updated = updatedDirectorySizes(text, name, size, infoModificationTime, stillTrashed);

    const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
    std::string tempName;
    int fd = -1;
    for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
        tempName = std::string(kDirectorySizesName) + ".tmp-" + std::to_string(::getpid()) + "-" +
                   std::to_string(stamp) + "-" + std::to_string(attempt);
        fd = ::openat(trashDirectoryFd, tempName.c_str(),
                      O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0 && errno != EEXIST)
            break;
    }
    if (fd < 0) {
        setError(error, posixError(errno, sizesPath, "Cannot create a temporary file for"));
        return false;
    }
    UniqueFd out(fd);
    if (!writeAll(out.get(), updated) || ::fsync(out.get()) != 0 || !out.close()) {
        const int saved = errno;
        ::unlinkat(trashDirectoryFd, tempName.c_str(), 0);
        setError(error, posixError(saved, sizesPath, "Cannot write"));
        return false;
    }
    if (::renameat(trashDirectoryFd, tempName.c_str(), trashDirectoryFd, kDirectorySizesName) != 0) {
        const int saved = errno;
        ::unlinkat(trashDirectoryFd, tempName.c_str(), 0);
        setError(error, posixError(saved, sizesPath, "Cannot replace"));
        return false;
    }
    ::fsync(trashDirectoryFd);
    return true;
}

} // namespace corvel

#pragma once
// Whole-file reads, crash-safe whole-file writes, and files open for reading.

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "error.h"

namespace corvel {

// Writes every byte to the descriptor, going on after short writes and interruptions;
// false with errno set when a write fails.
bool writeAll(int fd, std::string_view bytes);

// A file open for reading, closed when dropped. Opening never blocks on a device or a
// fifo; with followLink false a symbolic link is not opened (valid() is false).
class ReadOnlyFile {
public:
    explicit ReadOnlyFile(const std::string& path, bool followLink = true);
    ~ReadOnlyFile();
    ReadOnlyFile(const ReadOnlyFile&) = delete;
    ReadOnlyFile& operator=(const ReadOnlyFile&) = delete;
    int fd() const { return m_fd; }
    bool valid() const { return m_fd >= 0; }

private:
    int m_fd;
};

// Asked between chunks of a long read; true ends the read.
using StopCheck = std::function<bool()>;

// How a file the program did not write itself (settings, library descriptions,
// preferences of other applications) is read.
struct RegularFileRead {
    std::size_t maxBytes = 0;
    // With false a symbolic link is not opened (a POSIX ELOOP error).
    bool followLink = true;
    // Polled before every chunk; empty means never stop.
    StopCheck shouldStop;
};

// Opens the file without blocking (O_NONBLOCK: a fifo or a device never waits for a
// writer), checks with fstat that it is a regular file, then hands its bytes to consume
// in chunks of at most 64 KiB, on the calling thread. Fails, with nothing read past the
// check, when the file cannot be opened (POSIX error), is not a regular file (file error
// EINVAL, "is not a regular file"), or is larger than maxBytes, before or while being
// read (file error EFBIG); fails with ECANCELED when shouldStop answered true, and with
// ECANCELED too when consume answers false. Every failure names the path.
[[nodiscard]] bool readRegularFileChunks(const std::string& path, const RegularFileRead& how,
                                         const std::function<bool(std::string_view)>& consume,
                                         CVError* error);

// The whole regular file into out, as readRegularFileChunks reads it.
[[nodiscard]] bool readRegularFile(const std::string& path, std::string& out, const RegularFileRead& how,
                                   CVError* error);

// Reads the whole file into *out, links followed, as readRegularFile does: fails (with
// a POSIX error) when the file cannot be opened or read, with a file error when it is
// not a regular file or larger than maxBytes.
[[nodiscard]] bool readFileContents(const std::string& path, std::string& out, std::size_t maxBytes,
                                    CVError* error);

// Replaces the file at path with bytes so that a crash at any moment leaves either the
// old file or the new one, never a mix: the bytes go to a temporary file in the same
// folder ("<name>.tmp-XXXXXX"), which is fsync'ed and renamed over path, and the folder is
// fsync'ed after. On failure the old file is untouched and the temporary is removed.
// The file gets newFileMode when it is new and keeps its mode otherwise.
[[nodiscard]] bool writeFileAtomically(const std::string& path, std::string_view bytes, CVError* error,
                                       unsigned newFileMode = 0600);

// Removes what writeFileAtomically left beside path when the writing process ended
// between creating its temporary and renaming it. A name is a candidate only when it is
// path's own name, ".tmp-" and six letters or digits; it goes only when it is a regular
// file of this user with no other name, unchanged for minimumAge, and no writer holds its
// lock (writeFileAtomically locks its temporary while writing and syncing it; the
// moment from closing to renaming is covered by the age). path itself and every
// other entry are never touched. Answers the paths removed.
std::vector<std::string> removeStaleTemporaries(const std::string& path, std::chrono::seconds minimumAge);

// Saves bytes at path the way a document is saved. A regular file there, or the file a
// symbolic link there points to (the link stays), is replaced with writeFileAtomically,
// so a failure (a full disk, a folder where no temporary may be made) leaves it as it
// was; a new file is made the same way with mode 0666 less the umask. A fifo or a
// character device (a pipe, a terminal, /dev/null) is written straight: nothing there
// could be lost. A folder, a dangling link or anything else is an error.
[[nodiscard]] bool saveFile(const std::string& path, std::string_view bytes, CVError* error);

// Renames a damaged file beside itself to "<path>.corrupt-YYYYMMDD-HHMMSS" (local time;
// "-2", "-3" … after one of the same second), never over an existing name
// (renameat2 with RENAME_NOREPLACE). Answers the new path, or empty with errno set when
// the file could not be renamed.
std::string setAsideDamagedFile(const std::string& path);

// Creates the folder and its missing parents (mode 0700 for new ones). True when the folder exists after.
[[nodiscard]] bool makeDirectories(const std::string& path, CVError* error);

// True when something exists at the path (symbolic links followed; with
// followLinks false a dangling link counts too).
bool pathExists(const std::string& path, bool followLinks = true);
// True when the path names a folder (links followed).
bool isDirectory(const std::string& path);

// The folder part of a path ("/a/b" for "/a/b/c", "." for "c", "/" for "/c").
std::string parentPath(std::string_view path);
// The last component of a path (without trailing slashes).
std::string lastPathComponent(std::string_view path);
// The path with every link and "." or ".." resolved (realpath(3)); nothing, with errno
// set, when it or a folder on the way does not exist or cannot be looked up.
std::optional<std::string> canonicalPath(const std::string& path);
// Where the open folder lies now, as the kernel names it (its links resolved); nothing when
// that cannot be read or the folder was removed.
std::optional<std::string> placeOfOpenFolder(int fd);

} // namespace corvel

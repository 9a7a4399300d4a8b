#include "support/long_path.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace corvel::test {

namespace {

// Long enough that a few of them pass PATH_MAX, short enough for NAME_MAX.
const std::string kName(200, 'n');
constexpr int kLevels = 22; // 22 * 201 bytes pass 4,096 whatever the folder

} // namespace

LongPath::LongPath(std::string folder, std::string_view contents) : m_folder(std::move(folder)) {
    int fd = ::open(m_folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        throw std::runtime_error("cannot open " + m_folder);
    std::string path = m_folder;
    for (int level = 0; level < kLevels; ++level) {
        if (::mkdirat(fd, kName.c_str(), 0755) != 0 && errno != EEXIST)
            throw std::runtime_error("mkdirat failed");
        const int below = ::openat(fd, kName.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(fd);
        if (below < 0)
            throw std::runtime_error("openat failed");
        fd = below;
        path += "/" + kName;
        if (path.size() + 1 + kName.size() < PATH_MAX)
            m_deepestReachable = path;
    }
    const int file = ::openat(fd, "file", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    ::close(fd);
    if (file < 0 || ::write(file, contents.data(), contents.size()) != static_cast<ssize_t>(contents.size()))
        throw std::runtime_error("cannot write the file at the bottom of the chain");
    ::close(file);
}

LongPath::~LongPath() {
    // Open every level, then remove from the bottom up.
    std::vector<int> levels{::open(m_folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    while (levels.back() >= 0 && levels.size() <= kLevels)
        levels.push_back(::openat(levels.back(), kName.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (levels.back() < 0)
        levels.pop_back();
    if (levels.size() == kLevels + 1)
        ::unlinkat(levels.back(), "file", 0);
    for (std::size_t i = levels.size(); i-- > 1;) {
        ::close(levels[i]);
        ::unlinkat(levels[i - 1], kName.c_str(), AT_REMOVEDIR);
    }
    if (!levels.empty())
        ::close(levels[0]);
}

} // namespace corvel::test

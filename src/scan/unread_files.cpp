#include "unread_files.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "engine/node.h"

namespace corvel {

void UnreadFiles::note(CVFile& file, int error) {
    // ENXIO: a socket (or a device without its driver), with nothing in it to read.
    if (error == ENAMETOOLONG || error == ENXIO || !file.markReadFailureNamed())
        return;
    {
        MutexLock lock(m_mutex);
        if (m_named.size() >= m_namedLimit) {
            ++m_unnamed;
            return;
        }
    }
    // The path and the reason are made without the lock; another thread may fill the
    // last named place meanwhile, and this file is then counted.
    UnreadFile unread{file.path(), std::strerror(error)};
    MutexLock lock(m_mutex);
    if (m_named.size() < m_namedLimit)
        m_named.push_back(std::move(unread));
    else
        ++m_unnamed;
}

std::vector<UnreadFile> UnreadFiles::named() const {
    std::vector<UnreadFile> named;
    {
        MutexLock lock(m_mutex);
        named = m_named;
    }
    // By path: the readers meet the files in no fixed order.
    std::sort(named.begin(), named.end(),
              [](const UnreadFile& a, const UnreadFile& b) { return a.path < b.path; });
    return named;
}

std::uint64_t UnreadFiles::count() const {
    MutexLock lock(m_mutex);
    return m_named.size() + m_unnamed;
}

void UnreadFiles::clear() {
    MutexLock lock(m_mutex);
    m_named.clear();
    m_unnamed = 0;
}

} // namespace corvel

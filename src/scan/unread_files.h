#pragma once
// UnreadFiles: the files a scan listed but could not open or read when it compared their
// content, each with the reason, for the scan's report. Such a file takes no part in the
// comparison; this says so instead of letting it drop out silently.
//
// Each file is named once (the file node remembers it was named), whichever reader met
// it first. Memory stays bounded: the first namedLimit files are kept by path and reason,
// the rest only counted. Safe from any thread; the lists are read once the reads are over.

#include <cstdint>
#include <string>
#include <vector>

#include "platform/thread_annotations.h"

namespace corvel {

class CVFile;

// A file whose content could not be read, and why (strerror of the errno).
struct UnreadFile {
    std::string path;
    std::string reason;
};

class UnreadFiles {
public:
    // A few hundred names are more than anyone reads; the rest are counted.
    static constexpr std::size_t kNamedLimit = 300;

    explicit UnreadFiles(std::size_t namedLimit = kNamedLimit) : m_namedLimit(namedLimit) {}
    UnreadFiles(const UnreadFiles&) = delete;
    UnreadFiles& operator=(const UnreadFiles&) = delete;

    // Notes that file could not be read (error: the errno, not 0); nothing when the file
    // was noted before, when its path is too long (ENAMETOOLONG: the walk names the
    // folder where paths grow past PATH_MAX, and every file below it fails so), or when
    // it is a socket (ENXIO: nothing in it to read). Any thread.
    void note(CVFile& file, int error) EXCLUDES(m_mutex);
    // The files kept by name, sorted by path.
    std::vector<UnreadFile> named() const EXCLUDES(m_mutex);
    // How many files were noted, named or not.
    std::uint64_t count() const EXCLUDES(m_mutex);
    // Forgets every file (a new scan: its nodes are new too).
    void clear() EXCLUDES(m_mutex);

private:
    const std::size_t m_namedLimit;
    mutable Mutex m_mutex;
    std::vector<UnreadFile> m_named GUARDED_BY(m_mutex);
    std::uint64_t m_unnamed GUARDED_BY(m_mutex) = 0;
};

} // namespace corvel

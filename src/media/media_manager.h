#pragma once
// CViMediaManager: parses each media library at most once per scan and answers the
// library record of a file by its path. Calls are serialised by a lock, so the scan
// thread and the main thread may both ask.

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <variant>
#include <vector>

#include "media_library.h"
#include "platform/property_value.h"

namespace corvel {

class UserDefaults;

class CViMediaManager {
public:
    // The process-wide manager, on the standard user defaults.
    static CViMediaManager& sharedInstance();
    explicit CViMediaManager(UserDefaults& defaults);

    // True when the description file at path is parsed now or was before. A missing
    // file, or a parse ended by stopParsing, gives false and is not remembered, so a
    // later look-up tries again. A file that is not a regular file or is too large is
    // logged and remembered as a library without records.
    bool parseLibraryIfDidntAlready(const std::string& path, bool iPhoto);

    // The photo record of a file from the library whose "AlbumData.xml" is at
    // libraryPath; null when the library or the file is unknown.
    PropertyValue iPhotoLibraryEventOfPhotoAtPath(const std::string& path, const std::string& libraryPath);
    // The track record of a file from the iTunes description file at libraryPath.
    PropertyValue iTunesTrackInfoAtPath(const std::string& path, const std::string& libraryPath);

    // Forgets every parsed library.
    void rescan();
    // Any thread: a parse in progress ends at its next chunk (the library counts as not
    // parsed and is not remembered), and none starts until resumeParsing. The scan stops
    // parsing when it is stopped and resumes at its start.
    void stopParsing() { m_stopped.store(true); }
    void resumeParsing() { m_stopped.store(false); }
    // How many description files were parsed since the last rescan (for tests).
    std::size_t parsedLibrariesCount() const;

private:
    using Library = std::variant<std::shared_ptr<CViPhotoLibrary>, std::shared_ptr<CViTunesLibrary>>;
    bool parseLocked(const std::string& path, bool iPhoto);
    const Library* libraryLocked(const std::string& path) const;

    UserDefaults& m_defaults;
    std::atomic<bool> m_stopped{false};
    mutable std::mutex m_mutex;
    std::vector<std::string> m_libsPaths;
    std::vector<Library> m_libsArray;
};

} // namespace corvel

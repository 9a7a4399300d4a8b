#include "media_manager.h"

#include <sys/stat.h>

#include "itunes_parser.h"
#include "libraries_hasher.h"
#include "photo_parser.h"
#include "platform/user_defaults.h"

namespace corvel {

CViMediaManager& CViMediaManager::sharedInstance() {
    static CViMediaManager manager(UserDefaults::standardUserDefaults());
    return manager;
}

CViMediaManager::CViMediaManager(UserDefaults& defaults) : m_defaults(defaults) {}

const CViMediaManager::Library* CViMediaManager::libraryLocked(const std::string& path) const {
    for (std::size_t i = 0; i < m_libsPaths.size(); ++i)
        if (m_libsPaths[i] == path)
            return &m_libsArray[i];
    return nullptr;
}

bool CViMediaManager::parseLocked(const std::string& path, bool iPhoto) {
    if (libraryLocked(path))
        return true;
    struct stat st {};
    if (path.empty() || ::stat(path.c_str(), &st) != 0 || m_stopped.load())
        return false;
    const StopCheck shouldStop = [this] { return m_stopped.load(); };
    if (iPhoto) {
        auto library = std::make_shared<CViPhotoLibrary>(path);
        CVMD5LibrariesHasher hasher(m_defaults);
        const bool changed = hasher.libraryDidChangeFromLastScan(path);
        CViPhotoParser parser(m_defaults);
        parser.parseXMLFile(path, !changed, shouldStop);
        if (m_stopped.load())
            return false;
        library->setPhotosArray(parser.getPhotosArray());
        m_libsArray.emplace_back(std::move(library));
    } else {
        auto library = std::make_shared<CViTunesLibrary>(path);
        CViTunesParser parser;
        parser.parseXMLFile(path, shouldStop);
        if (m_stopped.load())
            return false;
        library->setTracksArray(parser.getTracksArray());
        m_libsArray.emplace_back(std::move(library));
    }
    m_libsPaths.push_back(path);
    return true;
}

bool CViMediaManager::parseLibraryIfDidntAlready(const std::string& path, bool iPhoto) {
    std::lock_guard lock(m_mutex);
    return parseLocked(path, iPhoto);
}

PropertyValue CViMediaManager::iPhotoLibraryEventOfPhotoAtPath(const std::string& path,
                                                               const std::string& libraryPath) {
    std::lock_guard lock(m_mutex);
    if (!parseLocked(libraryPath, true))
        return {};
    const Library* library = libraryLocked(libraryPath);
    const auto* photos = std::get_if<std::shared_ptr<CViPhotoLibrary>>(library);
    return photos ? (*photos)->libraryEventForPath(path) : PropertyValue();
}

PropertyValue CViMediaManager::iTunesTrackInfoAtPath(const std::string& path,
                                                     const std::string& libraryPath) {
    std::lock_guard lock(m_mutex);
    if (!parseLocked(libraryPath, false))
        return {};
    const Library* library = libraryLocked(libraryPath);
    const auto* tracks = std::get_if<std::shared_ptr<CViTunesLibrary>>(library);
    return tracks ? (*tracks)->trackInfoAtPath(path) : PropertyValue();
}

void CViMediaManager::rescan() {
    std::lock_guard lock(m_mutex);
    m_libsPaths.clear();
    m_libsArray.clear();
}

std::size_t CViMediaManager::parsedLibrariesCount() const {
    std::lock_guard lock(m_mutex);
    return m_libsPaths.size();
}

} // namespace corvel

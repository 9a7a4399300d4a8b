#pragma once
// CVNodeTypeGenerator: the node type of a file or folder path. Files are typed by the
// type identifier of their extension (and a few extension patterns); folders by their
// extension, by the media library files inside them and by whether they are the
// user's current photo or music library. Linux has no type codes or package flags:
// application bundles are ".app" folders, packages are folders with a known package
// extension, a folder holding "AlbumData.xml" is a photo library, and no library
// application is ever installed, so the "newer library" types 12 and 15 never occur.

#include <atomic>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "node_type.h"
#include "platform/text.h"

namespace corvel {

class UserDefaults;

// The names in a folder, when the caller has listed it already (the walk has): probes
// for a file in the folder are answered from the listing instead of the file system.
class FolderListing {
public:
    virtual ~FolderListing() = default;
    virtual bool contains(std::string_view name) const = 0;
};

// True when the folder holds an entry of that name: from the listing when there is
// one, otherwise by asking the file system.
bool folderHolds(std::string_view folder, std::string_view name, const FolderListing* listing);

class CVNodeTypeGenerator {
public:
    // The process-wide generator on the standard user defaults; made once.
    static CVNodeTypeGenerator& sharedGenerator();

    // A generator whose current libraries come from iApps preference files under home
    // (home/Library/Preferences/com.apple.iApps.plist) and realHome, in that order.
    CVNodeTypeGenerator(UserDefaults& defaults, std::string home, std::string realHome);

    // Forgets the current library paths so that they are read again, and allows reading
    // the preferences again after stopReadingPreferences. Called at the start of every walk.
    void prepareGenerator();
    // Any thread: a read of the preferences in progress ends at its next chunk (the
    // current libraries are then "none" until the next prepareGenerator).
    void stopReadingPreferences() { m_stopReading.store(true); }

    // Folder of the current photo / music library, "none" when the preferences name none.
    // A preference file is read only when it is a regular file (not a link) of at most
    // kMaxPropertyListBytes, opened without blocking; anything else is logged and skipped.
    std::string currentIPhotoLibPath();
    std::string currentITunesLibPath();

    // User defaults "iPhotoCompatibleVersion" (default "910.42") and "iTunesCompatibleVersion" (default
    // "12.4.1.6").
    std::string maxiPhotoTested() const;
    std::string maxiTunesTested() const;

    // A file's type depends on its extension alone; answers are remembered per extension.
    NodeType nodeTypeOfFile(std::string_view path) const;
    // How many extensions have a remembered answer (for tests).
    std::size_t knownExtensionsCount() const;
    NodeType nodeTypeOfFolder(std::string_view path, const FolderListing* listing = nullptr);

    // Node type from an extension pattern (step 6 of file typing), or nothing.
    static std::optional<NodeType> typeFromExtensionPatterns(std::string_view extension);

private:
    void getCurrentLibsFromPrefs();
    NodeType typeOfExtension(std::string_view extension) const;

    UserDefaults& m_defaults;
    std::string m_home;
    std::string m_realHome;
    std::mutex m_mutex;
    std::atomic<bool> m_stopReading{false};
    std::optional<std::string> m_currentIPhotoLibPath;
    std::optional<std::string> m_currentITunesLibPath;
    mutable std::shared_mutex m_typeCacheMutex;
    mutable std::unordered_map<std::string, NodeType> m_typeByExtension;
};

// The extension of the last path component ("" when none; a leading dot does not start one).
std::string_view pathExtension(std::string_view path);

} // namespace corvel

#pragma once
// CVIgnoreList: decides what a scan may enter and what it may offer for removal. It
// merges the shipped default list (resource "IgnoreList.plist") with the user's
// exclusions in the user default "IgnoreList" ({"Directories", "ExtentionsGroups",
// "FilePathes"}). Before each scan updateExcludeList and addExcludePathWithRoot flatten
// the enabled entries into lookup lists; the walk then asks, for every path, the scan
// verdict, whether a folder's content is hidden, and whether content may be removed.
//
// Linux specifics: system paths that start with "/" (or "~") are absolute; the others
// are relative to the root of each scanned volume. Unremovable folders may name the
// XDG user folders as $XDG_PICTURES_DIR and the like. Path exclusions (system paths,
// the user's folders and items, the ~/Library exception) compare paths exactly as
// written, case-sensitively as Linux file systems do; file names and extensions are
// still compared in lower case, and the pattern is matched case-insensitively.
//
// Settings are never lost: an "IgnoreList" value that is not a dictionary is reported
// and left in the store (the shipped lists apply in memory); a user pattern that does
// not compile is reported and none of it applies (the shipped pattern alone does).
//
// Threads: the flattened lists are written before the walk and only read during it;
// the user's lists are edited on the main thread. Decisions may run on the scan thread.

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "engine/node_type.h"
#include "platform/item_status.h"
#include "platform/property_value.h"
#include "platform/text.h"

namespace corvel {

class UserDefaults;
class CVNodeTypeGenerator;
class FolderListing;

enum ScanVerdict : std::uint32_t {
    ScanAllowed = 0,
    ScanRefusedTimeMachine = 1,
    ScanRefusedHidden = 2,
    ScanRefusedExtension = 3,
    ScanRefusedSystemPath = 4,
    ScanRefusedUserPath = 5,
    ScanRefusedPattern = 6,
    ScanRefusedFileName = 7,
};

inline constexpr const char* kIgnoreListKey = "IgnoreList";
inline constexpr const char* kIgnoreRegexpStringKey = "IgnoreRegexpString";
inline constexpr const char* kDirectoriesKey = "Directories";
inline constexpr const char* kExtentionsGroupsKey = "ExtentionsGroups";
inline constexpr const char* kFilePathesKey = "FilePathes";
inline constexpr const char* kRecordValueKey = "Value";
inline constexpr const char* kRecordEnabledKey = "Enabled";
inline constexpr const char* kGroupIDKey = "ID";
inline constexpr const char* kGroupExtentionsKey = "Extentions";

// A folder as the file system knows it, whatever path leads to it.
using FolderIdentity = ItemIdentity;

class CVIgnoreList {
public:
    struct Environment {
        std::string home;     // what "~" means for the user's own entries
        std::string realHome; // the account's home from the password database
        // The mount point that holds a path.
        std::function<std::string(const std::string&)> volumeOf;
    };

    // The one instance: the standard store, the shipped resource, this machine's mounts.
    static CVIgnoreList& sharedIgnoreList();
    CVIgnoreList(UserDefaults& defaults, std::string resourcePath, Environment environment,
                 CVNodeTypeGenerator& typeGenerator);

    // The parsed resource; an empty dictionary (logged) when it cannot be read.
    const PropertyValue& defaultIgnoreList();

    void initIgnoreList();
    // Writes the user's lists to the store under "IgnoreList" and flushes it.
    void synchronize();
    void resetExcludeItemsToDefaults();

    void updateExcludeList();
    void addExcludePathWithRoot(const std::string& root);

    // The verdict for a path inside a folder of type rootType; ignoreLibrary lets files
    // under ~/Library pass a "~/Library" exclusion. isFolder, when known, spares the
    // Time Machine probe for files; a listing of the folder answers the probe without
    // the file system.
    // The combined pattern is read from the settings for every verdict unless the caller
    // passes it (the walk takes it once: a value, or null when there is none).
    ScanVerdict isPathForbiddenToScan(const std::string& path, NodeType rootType, bool ignoreLibrary,
                                      std::optional<bool> isFolder = std::nullopt,
                                      const FolderListing* listing = nullptr,
                                      std::optional<const RegularExpression*> pattern = std::nullopt);
    // Whether a folder's children are hidden content; always reports the folder's type.
    bool isPathContentHidden(const std::string& folder, NodeType& type,
                             const FolderListing* listing = nullptr);
    bool isPathContentForbiddenToRemove(const std::string& path);
    // The generator that types the folders the walk meets.
    CVNodeTypeGenerator& typeGenerator() const { return m_typeGenerator; }
    bool isFolderForbiddenToRemove(const std::string& path);
    // Built on first use, kept; any thread.
    std::vector<std::string> unremovableFolders();
    // The unremovable folders where they really are (links resolved, for those that
    // exist), for the checks that keep a removal away from them. Any thread.
    std::vector<std::string> protectedFolders();
    // Whether removing the folder at canonicalPath (links resolved) would take one of the
    // protected folders: it is one, or holds one.
    static bool coversProtectedFolder(const std::string& canonicalPath,
                                      const std::vector<std::string>& protectedFolders);
    // The device and inode of each protected folder that exists and of every folder above
    // it. A folder reached by another path (a bind mount, a second mount of the same file
    // system) shows the same pair, so a folder with one of these is, or holds, a protected
    // folder whatever its path says. Any thread.
    std::vector<FolderIdentity> protectedFolderIdentities();
    static bool isProtectedIdentity(const FolderIdentity& folder,
                                    const std::vector<FolderIdentity>& identities);

    static PropertyValue generateNewExcludeGroupWithExtensions(const PropertyValue::Array& extensions);
    std::int64_t generateUniqueIDForKey(const std::string& key) const;
    static PropertyValue::Array pathsRecordsWithURLs(const std::vector<std::string>& urls);
    // The combined pattern of the default list and the user's, or nothing. Compiled
    // again when the user's part changed; the copy stays valid. When the combination
    // does not compile, the default pattern alone (the user is told), never an earlier one.
    const RegularExpression* additionalRegex();
    std::optional<RegularExpression> additionalRegexCopy();
    std::string description() const;

    // The user's lists (edit on the main thread; written by synchronize).
    PropertyValue::Array& excludePathsList() { return m_excludePathsList; }
    PropertyValue::Array& excludeFilesList() { return m_excludeFilesList; }
    PropertyValue::Array& excludeExtentionsGroups() { return m_excludeExtentionsGroups; }

    // The flattened lists of the current scan.
    const std::vector<std::string>& currentPathsToExclude() const { return m_currentPathsToExclude; }
    const std::vector<std::string>& currentExtentionsToExclude() const {
        return m_currentExtentionsToExclude;
    }
    const std::vector<std::string>& currentFilesToExclude() const { return m_currentFilesToExclude; }
    bool isSystemPathIndex(std::size_t index) const { return m_currentSystemPathsIndices.contains(index); }

    // True when p lies at or below e ("/" holds everything), compared as written.
    static bool isSubpath(const std::string& p, const std::string& e);

private:
    std::string expandHome(const std::string& path, bool systemEntry) const;

    UserDefaults& m_defaults;
    std::string m_resourcePath;
    Environment m_environment;
    CVNodeTypeGenerator& m_typeGenerator;

    std::optional<PropertyValue> m_defaultIgnoreList;
    PropertyValue::Array m_excludePathsList;
    PropertyValue::Array m_excludeFilesList;
    PropertyValue::Array m_excludeExtentionsGroups;
    PropertyValue::Dictionary m_customAutoselectIgnoreList;
    std::vector<std::string> m_systemPaths;

    std::vector<std::string> m_currentPathsToExclude;
    std::unordered_set<std::size_t> m_currentSystemPathsIndices;
    std::vector<std::string> m_currentExtentionsToExclude;
    std::vector<std::string> m_currentFilesToExclude;
    std::unordered_set<std::string> m_currentFilesSet;
    std::string m_libraryPathToSkip;

    bool m_additionalRegexIsEmpty = false;
    std::optional<RegularExpression> m_additionalRegex;
    std::string m_additionalRegexSource;
    std::mutex m_regexMutex;
    std::mutex m_unremovableMutex;
    std::optional<std::vector<std::string>> m_unremovableFolders; // guarded by m_unremovableMutex
};

// Lower case of a path: ASCII quickly, anything else through Unicode case mapping.
std::string lowercasePath(std::string_view path);

} // namespace corvel

#include "ignore_list.h"

#include <algorithm>
#include <sys/stat.h>

#include "engine/node_type.h"
#include "engine/node_type_generator.h"
#include "platform/file_io.h"
#include "platform/file_url.h"
#include "platform/property_list.h"
#include "platform/resources.h"
#include "platform/system_log.h"
#include "platform/text_format.h"
#include "platform/user_defaults.h"
#include "platform/user_paths.h"
#include "platform/volumes.h"

namespace corvel {

namespace {

constexpr const char* kTimeMachineMarker = "com.apple.timemachine.machineid.plist";

bool enabled(const PropertyValue& record) {
    return record[kRecordEnabledKey].toBool();
}

std::string joinPath(const std::string& base, const std::string& component) {
    std::string c = component;
    while (!c.empty() && c.front() == '/')
        c.erase(c.begin());
    if (base.empty() || base.back() == '/')
        return base + c;
    return base + "/" + c;
}

PropertyValue::Array arrayOf(const PropertyValue& value) {
    const auto* array = value.asArray();
    return array ? *array : PropertyValue::Array{};
}

// "$XDG_PICTURES_DIR" and its siblings name the user's standard folders.
std::optional<std::string> xdgFolder(const std::string& entry) {
    static const std::pair<const char*, UserDirectory> names[] = {
        {"$XDG_DESKTOP_DIR", UserDirectory::Desktop},
        {"$XDG_DOCUMENTS_DIR", UserDirectory::Documents},
        {"$XDG_DOWNLOAD_DIR", UserDirectory::Downloads},
        {"$XDG_MUSIC_DIR", UserDirectory::Music},
        {"$XDG_PICTURES_DIR", UserDirectory::Pictures},
        {"$XDG_VIDEOS_DIR", UserDirectory::Videos},
        {"$XDG_TEMPLATES_DIR", UserDirectory::Templates},
        {"$XDG_PUBLICSHARE_DIR", UserDirectory::PublicShare}};
    for (const auto& [name, kind] : names)
        if (entry == name)
            return userDirectory(kind);
    return std::nullopt;
}

} // namespace

std::string lowercasePath(std::string_view path) {
    bool ascii = true;
    for (const char c : path)
        if (static_cast<unsigned char>(c) >= 0x80) {
            ascii = false;
            break;
        }
    return ascii ? asciiLowercase(path) : lowercase(path);
}

CVIgnoreList& CVIgnoreList::sharedIgnoreList() {
    static auto* list =
        new CVIgnoreList(UserDefaults::standardUserDefaults(), resourcePath("IgnoreList.plist"),
                         Environment{homeDirectory(), realHomeDirectory(),
                                     [](const std::string& p) { return volumePathOfPath(p); }},
                         CVNodeTypeGenerator::sharedGenerator());
    return *list;
}

CVIgnoreList::CVIgnoreList(UserDefaults& defaults, std::string resourcePath, Environment environment,
                           CVNodeTypeGenerator& typeGenerator)
    : m_defaults(defaults), m_resourcePath(std::move(resourcePath)), m_environment(std::move(environment)),
      m_typeGenerator(typeGenerator) {
    if (!m_environment.volumeOf)
        m_environment.volumeOf = [](const std::string& p) { return volumePathOfPath(p); };
    initIgnoreList();
}

const PropertyValue& CVIgnoreList::defaultIgnoreList() {
    if (!m_defaultIgnoreList) {
        PropertyValue list;
        CVError error;
        if (!readPropertyListFile(m_resourcePath, list, &error) || !list.isDictionary()) {
            systemLogf("Failed to initialize ignore list at path %@", m_resourcePath);
            list = PropertyValue::Dictionary{};
        }
        m_defaultIgnoreList = std::move(list);
    }
    return *m_defaultIgnoreList;
}

void CVIgnoreList::initIgnoreList() {
    auto stored = m_defaults.dictionaryForKey(kIgnoreListKey);
    if (!stored && m_defaults.hasStoredValueForKey(kIgnoreListKey)) {
        // Not a dictionary: the user's value stays in the file, the shipped lists apply.
        warnUser(std::string("Setting \"") + kIgnoreListKey + "\" in " + m_defaults.path() +
                 " has the wrong type; the shipped ignore lists are used and the setting is left as it is");
        if (const auto* shipped = defaultIgnoreList().asDictionary())
            stored = *shipped;
    } else if (!stored) {
        resetExcludeItemsToDefaults();
        stored = m_defaults.dictionaryForKey(kIgnoreListKey);
    }
    const PropertyValue user(stored.value_or(PropertyValue::Dictionary{}));
    m_excludePathsList = arrayOf(user[kDirectoriesKey]);
    m_excludeExtentionsGroups = arrayOf(user[kExtentionsGroupsKey]);
    m_excludeFilesList = arrayOf(user[kFilePathesKey]);
    m_systemPaths.clear();
    for (const auto& entry : arrayOf(defaultIgnoreList()["SystemPaths"]["Value"]))
        if (entry.isString())
            m_systemPaths.push_back(*entry.asString());
    m_currentSystemPathsIndices.clear();
}

void CVIgnoreList::synchronize() {
    // A stored list of the wrong type is the user's (reported when read): it stays.
    if (m_defaults.hasStoredValueForKey(kIgnoreListKey) && !m_defaults.dictionaryForKey(kIgnoreListKey)) {
        systemLog(std::string("The ignore list is not saved: \"") + kIgnoreListKey + "\" in " +
                  m_defaults.path() + " has the wrong type and is left as it is");
        return;
    }
    m_defaults.setObject(PropertyValue::Dictionary{{kDirectoriesKey, m_excludePathsList},
                                                   {kExtentionsGroupsKey, m_excludeExtentionsGroups},
                                                   {kFilePathesKey, m_excludeFilesList}},
                         kIgnoreListKey);
    CVError error;
    if (!m_defaults.synchronize(&error))
        systemLog("Failed to save the ignore list: " + error.localizedDescription());
}

void CVIgnoreList::resetExcludeItemsToDefaults() {
    m_defaultIgnoreList.reset();
    const PropertyValue& list = defaultIgnoreList();
    m_excludePathsList = arrayOf(list[kDirectoriesKey]);
    m_excludeExtentionsGroups = arrayOf(list[kExtentionsGroupsKey]);
    m_excludeFilesList = arrayOf(list[kFilePathesKey]);
    synchronize();
}

void CVIgnoreList::updateExcludeList() {
    m_currentExtentionsToExclude.clear();
    m_currentFilesToExclude.clear();
    m_currentFilesSet.clear();
    m_currentPathsToExclude.clear();
    m_currentSystemPathsIndices.clear();
    for (const auto& group : m_excludeExtentionsGroups) {
        if (!enabled(group))
            continue;
        // Taken as written: an entry in capitals never matches a lowercased path.
        for (const auto& extension : arrayOf(group[kGroupExtentionsKey]))
            if (extension.isString())
                m_currentExtentionsToExclude.push_back(*extension.asString());
    }
    for (const auto& record : m_excludeFilesList)
        if (auto value = record[kRecordValueKey].textOrBytes(); value && enabled(record))
            m_currentPathsToExclude.push_back(std::move(*value));
    for (const auto& name : arrayOf(defaultIgnoreList()["FileNames"]))
        if (name.isString()) {
            m_currentFilesToExclude.push_back(lowercasePath(*name.asString()));
            m_currentFilesSet.insert(m_currentFilesToExclude.back());
        }
    m_libraryPathToSkip = m_environment.realHome + "/Library";
    m_additionalRegexIsEmpty = false;
}

std::string CVIgnoreList::expandHome(const std::string& path, bool systemEntry) const {
    if (path.find('~') == std::string::npos)
        return path;
    if (systemEntry && m_environment.home != m_environment.realHome) {
        std::string out;
        for (const char c : path)
            out += c == '~' ? m_environment.realHome : std::string(1, c);
        return out;
    }
    if (path == "~")
        return m_environment.home;
    if (path.starts_with("~/"))
        return m_environment.home + path.substr(1);
    return path;
}

void CVIgnoreList::addExcludePathWithRoot(const std::string& root) {
    if (root.empty())
        return;
    const std::string volume = m_environment.volumeOf(root);
    auto related = [&](const std::string& x) { return x.starts_with(root) || root.starts_with(x); };
    auto known = [&](const std::string& x) {
        return std::find(m_currentPathsToExclude.begin(), m_currentPathsToExclude.end(), x) !=
               m_currentPathsToExclude.end();
    };
    for (const auto& entry : m_systemPaths) {
        const std::string expanded = expandHome(entry, true);
        // Absolute entries stand for themselves; relative ones sit at each volume's root.
        const std::string x = expanded.starts_with("/") ? expanded : joinPath(volume, expanded);
        if (!known(x) && related(x)) {
            m_currentSystemPathsIndices.insert(m_currentPathsToExclude.size());
            m_currentPathsToExclude.push_back(x);
        }
    }
    for (const auto& record : m_excludePathsList) {
        const auto value = record[kRecordValueKey].textOrBytes();
        if (!enabled(record) || !value)
            continue;
        const std::string p = expandHome(*value, false);
        if (!known(p) && related(p))
            m_currentPathsToExclude.push_back(p);
    }
}

bool CVIgnoreList::isSubpath(const std::string& p, const std::string& e) {
    if (p.find(e) == std::string::npos)
        return false;
    if (e == "/")
        return true;
    const std::string q = p + "/";
    return q.starts_with(e) && q.find(e + "/") != std::string::npos;
}

ScanVerdict CVIgnoreList::isPathForbiddenToScan(const std::string& path, NodeType rootType,
                                                bool ignoreLibrary, std::optional<bool> isFolder,
                                                const FolderListing* listing,
                                                std::optional<const RegularExpression*> pattern) {
    const std::string name = lastPathComponent(path);
    if (isIPhotoLibFileType(rootType) && name != "Masters" && name != "Previews" && name != "Modified" &&
        name != "Originals")
        return ScanRefusedSystemPath;
    if (isFolder.value_or(true) && folderHolds(path, kTimeMachineMarker, listing))
        return ScanRefusedTimeMachine;
    const std::string p = lowercasePath(path);
    const std::string n = lastPathComponent(p);
    const std::string_view extension = pathExtension(n);
    const std::string b = extension.empty() ? n : n.substr(0, n.size() - extension.size() - 1);
    if (b.starts_with("."))
        return ScanRefusedHidden;
    if (!extension.empty() && (m_currentFilesSet.contains(b) || m_currentFilesSet.contains(n)))
        return ScanRefusedFileName;
    // Paths as the file system spells them: Linux tells "Photos" from "photos".
    for (std::size_t i = 0; i < m_currentPathsToExclude.size(); ++i) {
        const std::string& e = m_currentPathsToExclude[i];
        if (ignoreLibrary && e == m_libraryPathToSkip)
            continue;
        if (isSubpath(path, e))
            return isSystemPathIndex(i) ? ScanRefusedSystemPath : ScanRefusedUserPath;
    }
    if (!extension.empty())
        for (const auto& excluded : m_currentExtentionsToExclude)
            if (extension == excluded)
                return ScanRefusedExtension;
    if (const RegularExpression* combined = pattern ? *pattern : additionalRegex();
        combined && combined->search(p))
        return ScanRefusedPattern;
    return ScanAllowed;
}

const RegularExpression* CVIgnoreList::additionalRegex() {
    std::lock_guard lock(m_regexMutex);
    if (m_additionalRegexIsEmpty)
        return nullptr;
    const std::string defaultPattern = defaultIgnoreList()[kIgnoreRegexpStringKey].toString();
    if (defaultPattern.empty()) {
        m_additionalRegexIsEmpty = true;
        return nullptr;
    }
    const std::string user = m_defaults.stringForKey(kIgnoreRegexpStringKey).value_or("");
    const std::string source = user.empty() ? defaultPattern : formatf("(%@)|(%@)", defaultPattern, user);
    // Compiled again only when the text changed, so the user's edits apply at once.
    if (source != m_additionalRegexSource) {
        m_additionalRegexSource = source;
        CVError error;
        auto compiled = RegularExpression::compile(source, &error);
        if (!compiled) {
            systemLogf("Failed to create regular exp from string %@ with error %@", source,
                       error.localizedDescription());
            // The user's part is at fault when the shipped pattern compiles alone: no user
            // pattern applies, the shipped one still does.
            if (!user.empty() && (compiled = RegularExpression::compile(defaultPattern, nullptr)))
                warnUser("The ignore pattern \"" + user + "\" is not a valid regular expression (" +
                         error.localizedDescription() + "); it is not applied");
        }
        // Replaced in every case: a pattern from before this text never stays in force.
        m_additionalRegex = std::move(compiled);
    }
    return m_additionalRegex ? &*m_additionalRegex : nullptr;
}

std::optional<RegularExpression> CVIgnoreList::additionalRegexCopy() {
    const RegularExpression* pattern = additionalRegex();
    std::lock_guard lock(m_regexMutex);
    return pattern ? std::optional<RegularExpression>(*pattern) : std::nullopt;
}

bool CVIgnoreList::isPathContentHidden(const std::string& folder, NodeType& type,
                                       const FolderListing* listing) {
    type = m_typeGenerator.nodeTypeOfFolder(folder, listing);
    if (type > 19)
        return false;
    if (type == kNodeTypePackage || type == kNodeTypeApplication || type == kNodeTypeDocumentPackage ||
        type == kNodeTypeProjectPackage)
        return true;
    if (type != kNodeTypePlainFolder)
        return false;
    if (folder.find("/Applications/Adobe") != std::string::npos)
        return true;
    for (const auto& name : arrayOf(defaultIgnoreList()["BundleFiles"]))
        if (name.isString() && folderHolds(folder, *name.asString(), listing))
            return true;
    return false;
}

bool CVIgnoreList::isPathContentForbiddenToRemove(const std::string& path) {
    const PropertyValue& extensions = defaultIgnoreList()["UnremovableExtentions"];
    if (!extensions.isArray())
        return false;
    const std::string_view extension = pathExtension(path);
    for (const auto& e : *extensions.asArray())
        if (e.isString() && *e.asString() == extension && !extension.empty())
            return true;
    return false;
}

std::vector<std::string> CVIgnoreList::unremovableFolders() {
    const std::lock_guard lock(m_unremovableMutex);
    if (!m_unremovableFolders) {
        std::vector<std::string> folders;
        for (const auto& entry : arrayOf(defaultIgnoreList()["UnremovableFolders"])) {
            if (!entry.isString())
                continue;
            if (auto xdg = xdgFolder(*entry.asString())) {
                folders.push_back(*xdg);
                continue;
            }
            std::string folder;
            for (const char c : *entry.asString())
                folder += c == '~' ? m_environment.realHome : std::string(1, c);
            folders.push_back(folder);
        }
        m_unremovableFolders = std::move(folders);
    }
    return *m_unremovableFolders;
}

bool CVIgnoreList::isFolderForbiddenToRemove(const std::string& path) {
    const auto folders = unremovableFolders();
    return std::find(folders.begin(), folders.end(), path) != folders.end();
}

std::vector<std::string> CVIgnoreList::protectedFolders() {
    std::vector<std::string> folders;
    for (const std::string& folder : unremovableFolders()) {
        folders.push_back(folder);
        if (auto resolved = canonicalPath(folder); resolved && *resolved != folder)
            folders.push_back(*resolved);
    }
    return folders;
}

bool CVIgnoreList::coversProtectedFolder(const std::string& canonicalPath,
                                         const std::vector<std::string>& protectedFolders) {
    const std::string inside = canonicalPath == "/" ? canonicalPath : canonicalPath + "/";
    return std::any_of(protectedFolders.begin(), protectedFolders.end(), [&](const std::string& folder) {
        return folder == canonicalPath || folder.starts_with(inside);
    });
}

std::vector<FolderIdentity> CVIgnoreList::protectedFolderIdentities() {
    std::vector<FolderIdentity> identities;
    for (const std::string& folder : protectedFolders()) {
        // The folder, then each folder above it up to "/".
        std::string at = folder;
        while (true) {
            struct stat st {};
            if (::stat(at.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
                const FolderIdentity identity{static_cast<std::uint64_t>(st.st_dev),
                                              static_cast<std::uint64_t>(st.st_ino)};
                if (std::find(identities.begin(), identities.end(), identity) == identities.end())
                    identities.push_back(identity);
            }
            std::string up = parentPath(at);
            if (up.empty() || up == at)
                break;
            at = std::move(up);
        }
    }
    return identities;
}

bool CVIgnoreList::isProtectedIdentity(const FolderIdentity& folder,
                                       const std::vector<FolderIdentity>& identities) {
    return std::find(identities.begin(), identities.end(), folder) != identities.end();
}

PropertyValue CVIgnoreList::generateNewExcludeGroupWithExtensions(const PropertyValue::Array& extensions) {
    return PropertyValue::Dictionary{
        {kGroupIDKey, -1}, {kRecordEnabledKey, true}, {kGroupExtentionsKey, extensions}};
}

std::int64_t CVIgnoreList::generateUniqueIDForKey(const std::string& key) const {
    auto it = m_customAutoselectIgnoreList.find(key);
    const std::int64_t count =
        it == m_customAutoselectIgnoreList.end() ? 0 : static_cast<std::int64_t>(it->second.count());
    return ~count;
}

PropertyValue::Array CVIgnoreList::pathsRecordsWithURLs(const std::vector<std::string>& urls) {
    PropertyValue::Array records;
    for (const auto& url : urls)
        records.emplace_back(PropertyValue::Dictionary{
            {kRecordValueKey, filePathFromURLString(url).value_or(url)}, {kRecordEnabledKey, true}});
    return records;
}

std::string CVIgnoreList::description() const {
    auto list = [](const std::vector<std::string>& items) {
        PropertyValue::Array array(items.begin(), items.end());
        return PropertyValue(std::move(array));
    };
    return formatf("currentExtentionsToExclude %@ \n currentPathsToExclude %@ \n currentFilesToExclude %@",
                   list(m_currentExtentionsToExclude), list(m_currentPathsToExclude),
                   list(m_currentFilesToExclude));
}

} // namespace corvel

#include "node_type_generator.h"

#include <array>
#include <cctype>
#include <charconv>
#include <sys/stat.h>

#include "platform/file_io.h"
#include "platform/file_url.h"
#include "platform/property_list.h"
#include "platform/system_log.h"
#include "platform/type_identifiers.h"
#include "platform/user_defaults.h"
#include "platform/user_paths.h"

namespace corvel {

namespace {

constexpr std::string_view kNone = "none";
constexpr std::string_view kIAppsPreferences = "/Library/Preferences/com.apple.iApps.plist";

constexpr const char* kArchiveExtensions =
    "^(pkg$)|^(iso$)|^(dmg$)|^(ccd$)|^(rar$)|^(7z$)|^(arc$)|^(bz$)|^(bz2$)|^(bzip$)|^(bzip2$)|^(gz$)|"
    "^(gzi$)|^(gzip$)|^(tar$)|^(taz$)|^(zip$)|^(zz$)";

const RegularExpression& pattern(int which) {
    static const std::array<RegularExpression, 6> patterns = [] {
        const char* sources[] = {
            "^(ogg$)|^(flac$)|^(aac$)|^(mmf$)",
            "^(rmvb$)|^(mkv$)|^(vob$)|^(swf$)",
            "^(dib$)|^(rle$)|^(pcx$)|^(tpic$)|^(jfif$)|^(eps$)|^(cgm$)",
            "^(odt$)|^(djvu$)|^(docset$)|^(eml$)",
            kArchiveExtensions,
            "^(screenflow$)|^(rcproject$)",
        };
        auto compile = [](const char* source) { return *RegularExpression::compile(source, nullptr); };
        return std::array<RegularExpression, 6>{compile(sources[0]), compile(sources[1]),
                                                compile(sources[2]), compile(sources[3]),
                                                compile(sources[4]), compile(sources[5])};
    }();
    return patterns[static_cast<std::size_t>(which)];
}
enum { kAudioPattern, kVideoPattern, kImagePattern, kDocumentPattern, kArchivePattern, kProjectPattern };

bool anyConforms(const TypeIdentifiers& types, const std::string& id,
                 std::initializer_list<const char*> parents) {
    for (const char* parent : parents)
        if (types.conformsTo(id, parent))
            return true;
    return false;
}

// Folder extensions that make a folder one item (a package) rather than a plain folder.
bool isPackageExtension(std::string_view extension) {
    static constexpr std::string_view kPackages[] = {
        "app",           "bundle",    "framework",    "plugin",        "kext",         "photolibrary",
        "photoslibrary", "aplibrary", "approject",    "xcodeproj",     "xcworkspace",  "playground",
        "logicx",        "band",      "sparsebundle", "imovielibrary", "fcpbundle",    "pages",
        "numbers",       "key",       "wdgt",         "prefpane",      "qlgenerator",  "mdimporter",
        "saver",         "xpc",       "theater",      "tvlibrary",     "musiclibrary", "photobooth",
        "rtfd",          "lpdf",      "screenflow",   "rcproject"};
    const std::string lower = asciiLowercase(extension);
    for (const auto p : kPackages)
        if (lower == p)
            return true;
    return false;
}

// The folder that contains the file named by the first entry's URL, or "none".
std::string libraryFolderFromRecent(const PropertyValue& list) {
    const PropertyValue::Array* entries = list.asArray();
    if (!entries || entries->empty())
        return std::string(kNone);
    const std::string* url = (*entries)[0].asString();
    if (!url)
        return std::string(kNone);
    const auto path = filePathFromURLString(*url);
    const std::string file = path ? *path : *url;
    return parentPath(file);
}

} // namespace

bool folderHolds(std::string_view folder, std::string_view name, const FolderListing* listing) {
    if (listing && name.find('/') == std::string_view::npos)
        return listing->contains(name);
    std::string path(folder);
    if (path.empty() || path.back() != '/')
        path += '/';
    path.append(name);
    return pathExists(path);
}

std::string_view pathExtension(std::string_view path) {
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    const auto slash = path.rfind('/');
    const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
    const auto dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size())
        return {};
    return name.substr(dot + 1);
}

int compareVersion(std::string_view a, std::string_view b) {
    while (!a.empty() || !b.empty()) {
        auto take = [](std::string_view& s) {
            const auto dot = s.find('.');
            const std::string_view part = s.substr(0, dot);
            s = dot == std::string_view::npos ? std::string_view() : s.substr(dot + 1);
            unsigned long long value = 0;
            std::from_chars(part.data(), part.data() + part.size(), value);
            return value;
        };
        const auto x = take(a);
        const auto y = take(b);
        if (x != y)
            return x > y ? 1 : -1;
    }
    return 0;
}

CVNodeTypeGenerator& CVNodeTypeGenerator::sharedGenerator() {
    static CVNodeTypeGenerator generator(UserDefaults::standardUserDefaults(), homeDirectory(),
                                         realHomeDirectory());
    return generator;
}

CVNodeTypeGenerator::CVNodeTypeGenerator(UserDefaults& defaults, std::string home, std::string realHome)
    : m_defaults(defaults), m_home(std::move(home)), m_realHome(std::move(realHome)) {}

void CVNodeTypeGenerator::prepareGenerator() {
    std::lock_guard lock(m_mutex);
    m_stopReading.store(false);
    m_currentIPhotoLibPath.reset();
    m_currentITunesLibPath.reset();
}

void CVNodeTypeGenerator::getCurrentLibsFromPrefs() {
    const std::string candidates[] = {
        m_home + std::string(kIAppsPreferences),
        m_realHome + std::string(kIAppsPreferences),
        m_realHome + "/Library/Containers/com.apple.iApps/Data" + std::string(kIAppsPreferences),
    };
    const RegularFileRead how{kMaxPropertyListBytes, false, [this] { return m_stopReading.load(); }};
    PropertyValue prefs;
    for (const auto& path : candidates) {
        if (!pathExists(path, false))
            continue;
        CVError error;
        if (readPropertyListFile(path, prefs, how, &error))
            break;
        systemLog("Failed to read " + path + ": " + error.localizedDescription());
        prefs = PropertyValue();
    }
    m_currentIPhotoLibPath = libraryFolderFromRecent(prefs["iPhotoRecentDatabases"]);
    m_currentITunesLibPath = libraryFolderFromRecent(prefs["iTunesRecentDatabases"]);
}

std::string CVNodeTypeGenerator::currentIPhotoLibPath() {
    std::lock_guard lock(m_mutex);
    if (!m_currentIPhotoLibPath || !m_currentITunesLibPath)
        getCurrentLibsFromPrefs();
    return *m_currentIPhotoLibPath;
}

std::string CVNodeTypeGenerator::currentITunesLibPath() {
    std::lock_guard lock(m_mutex);
    if (!m_currentIPhotoLibPath || !m_currentITunesLibPath)
        getCurrentLibsFromPrefs();
    return *m_currentITunesLibPath;
}

std::string CVNodeTypeGenerator::maxiPhotoTested() const {
    return m_defaults.stringForKey("iPhotoCompatibleVersion").value_or("910.42");
}

std::string CVNodeTypeGenerator::maxiTunesTested() const {
    return m_defaults.stringForKey("iTunesCompatibleVersion").value_or("12.4.1.6");
}

std::optional<NodeType> CVNodeTypeGenerator::typeFromExtensionPatterns(std::string_view extension) {
    if (extension.empty())
        return std::nullopt;
    static constexpr std::pair<int, NodeType> order[] = {{kAudioPattern, kNodeTypeAudio},
                                                         {kVideoPattern, kNodeTypeVideo},
                                                         {kImagePattern, kNodeTypeImage},
                                                         {kDocumentPattern, kNodeTypeDocument},
                                                         {kArchivePattern, kNodeTypeArchive}};
    for (const auto& [which, type] : order)
        if (pattern(which).search(extension))
            return type;
    return std::nullopt;
}

NodeType CVNodeTypeGenerator::nodeTypeOfFile(std::string_view path) const {
    const std::string extension(pathExtension(path));
    {
        std::shared_lock lock(m_typeCacheMutex);
        if (auto it = m_typeByExtension.find(extension); it != m_typeByExtension.end())
            return it->second;
    }
    const NodeType type = typeOfExtension(extension);
    std::unique_lock lock(m_typeCacheMutex);
    m_typeByExtension.emplace(extension, type);
    return type;
}

std::size_t CVNodeTypeGenerator::knownExtensionsCount() const {
    std::shared_lock lock(m_typeCacheMutex);
    return m_typeByExtension.size();
}

NodeType CVNodeTypeGenerator::typeOfExtension(std::string_view extension) const {
    const auto& types = TypeIdentifiers::shared();
    const std::string id = types.preferredIdentifierForExtension(extension);
    if (anyConforms(types, id,
                    {"public.text", "com.adobe.pdf", "public.composite-content", "public.presentation",
                     "com.microsoft.word.doc", "com.microsoft.excel.xls", "com.apple.iwork.pages.pages",
                     "com.apple.iwork.numbers.numbers", "com.apple.iwork.keynote.key"}))
        return kNodeTypeDocument;
    if (anyConforms(types, id,
                    {"public.image", "public.dib", "public.rle", "public.pcx", "public.tpic", "public.jfif",
                     "public.eps", "public.cgm"}))
        return kNodeTypeImage;
    if (anyConforms(types, id, {"public.movie", "public.rmvb", "public.mkv", "public.vob", "public.swf"}))
        return kNodeTypeVideo;
    if (anyConforms(types, id, {"public.audio", "public.ogg", "public.flac", "public.aac", "public.mmf"}))
        return kNodeTypeAudio;
    if (anyConforms(types, id, {"public.archive", "public.disk-image"}))
        return kNodeTypeArchive;
    if (const auto byPattern = typeFromExtensionPatterns(extension))
        return *byPattern;
    if (anyConforms(types, id, {"public.data", "public.content"}))
        return kNodeTypeOther;
    return kNodeTypeUnknown;
}

NodeType CVNodeTypeGenerator::nodeTypeOfFolder(std::string_view path, const FolderListing* listing) {
    const std::string_view extension = pathExtension(path);
    if (!extension.empty()) {
        if (extension == "lpdf" || extension == "rtfd")
            return kNodeTypeDocumentPackage;
        if (pattern(kDocumentPattern).search(extension))
            return kNodeTypeDocument;
        if (pattern(kArchivePattern).search(extension))
            return kNodeTypeArchive;
        if (pattern(kProjectPattern).search(extension))
            return kNodeTypeProjectPackage;
    }
    const std::string lowerExtension = asciiLowercase(extension);
    const std::string folder(path);
    if (lowerExtension == "app")
        return kNodeTypeApplication;
    const bool package = isPackageExtension(extension);
    // The photo-booth library: its type code is lost on Linux, its extension is kept.
    if (lowerExtension == "photobooth")
        return kNodeTypePhotoBoothLibrary;
    // Photo libraries: the ".photolibrary" package, or an older library folder that
    // holds its "AlbumData.xml" (such folders carried a type code, which Linux lacks).
    if ((package && path.ends_with(".photolibrary")) || folderHolds(folder, "AlbumData.xml", listing))
        return folder == currentIPhotoLibPath() ? kNodeTypeCurrentIPhotoLibrary : kNodeTypeIPhotoLibrary;
    if (!package) {
        if (!folderHolds(folder, "iTunes Library.xml", listing) &&
            !folderHolds(folder, "iTunes Music Library.xml", listing))
            return kNodeTypePlainFolder;
        return folder == currentITunesLibPath() ? kNodeTypeCurrentITunesLibrary : kNodeTypeITunesLibrary;
    }
    static const auto aperture = RegularExpression::compile("(\\.aplibrary$)|(\\.approject)", nullptr);
    if (aperture->search(path))
        return kNodeTypeApertureLibrary;
    return kNodeTypePackage;
}

} // namespace corvel

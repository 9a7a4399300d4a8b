// A file's display path components: the folders below its group's base path, or,
// inside a music or photo library, the artist and album or the event the library
// gives the file.

#include "folder.h"
#include "group.h"
#include "media/media_library.h"
#include "node.h"
#include "node_type.h"
#include "platform/file_io.h"
#include "platform/file_url.h"

namespace corvel {

namespace {

std::string stringValue(const PropertyValue& value) {
    if (const std::string* text = value.asString())
        return *text;
    return value.isNull() ? std::string() : value.toString();
}

} // namespace

std::vector<CVPathComponent> CVFile::pathComponents() const {
    const auto root = rootFolder();
    const NodeType rootType = root ? root->type() : kNodeTypeUnknown;
    if (rootType == kNodeTypeITunesLibrary || rootType == kNodeTypeCurrentITunesLibrary)
        return generateITunesPathComponents();
    if (isIPhotoLibFileType(rootType))
        return generateIPhotoPathComponents();
    return generateRegularPathComponents();
}

std::vector<CVPathComponent> CVFile::generateRegularPathComponents() const {
    std::string base = "/";
    if (CVGroup* group = parentGroup())
        base = filePathFromURLString(group->basePathForFiles()).value_or("/");
    if (!base.ends_with('/'))
        base += '/';
    const std::string full = path();
    std::vector<CVPathComponent> components;
    // Each folder between the base and the file, shallowest first.
    for (std::size_t slash = full.find('/', 1); slash != std::string::npos;
         slash = full.find('/', slash + 1)) {
        const std::string folder = full.substr(0, slash);
        if (folder.size() + 1 > base.size() && (folder + '/').starts_with(base))
            components.push_back(CVPathComponent::initWithSourse(folder, {}, kComponentFolder));
    }
    return components;
}

std::vector<CVPathComponent> CVFile::generateITunesPathComponents() const {
    const PropertyValue record = info();
    std::vector<CVPathComponent> components;
    if (const std::string artist = stringValue(record[kArtistNameKey]); !artist.empty())
        components.push_back(CVPathComponent::initWithSourse(artist, {}, kComponentArtist));
    if (const std::string album = stringValue(record[kAlbumNameKey]); !album.empty())
        components.push_back(CVPathComponent::initWithSourse(album, {}, kComponentAlbum));
    return components.empty() ? generateRegularPathComponents() : components;
}

std::vector<CVPathComponent> CVFile::generateIPhotoPathComponents() const {
    const PropertyValue record = info();
    const std::string event = stringValue(record[kEventIDKey]);
    if (event.empty())
        return generateRegularPathComponents();
    return {CVPathComponent::initWithSourse(event, stringValue(record[kEventNameKey]), kComponentEvent)};
}

std::optional<CVPathComponent> CVFile::parentFolderPathComponent() const {
    auto components = pathComponents();
    if (components.empty())
        return std::nullopt;
    return std::move(components.back());
}

std::vector<std::string> CVFile::displayElements() const {
    std::vector<std::string> elements;
    for (auto& component : pathComponents())
        elements.push_back(std::move(component.title));
    elements.push_back(lastPathComponent(path()));
    return elements;
}

} // namespace corvel

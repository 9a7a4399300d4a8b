#include "path_component.h"

#include "platform/file_io.h"

namespace corvel {

CVPathComponent CVPathComponent::initWithSourse(std::string source, std::string title, std::int32_t kind) {
    CVPathComponent component;
    component.kind = kind;
    if (title.empty())
        title = kind == kComponentFolder ? lastPathComponent(source) : source;
    component.source = std::move(source);
    component.title = std::move(title);
    return component;
}

const char* CVPathComponent::parserKeyForPathComponentKind(std::int32_t kind) {
    switch (kind) {
    case kComponentEvent:
        return "EventID";
    case kComponentAlbum:
        return "AlbumName";
    case kComponentArtist:
        return "ArtistName";
    default:
        return "";
    }
}

} // namespace corvel

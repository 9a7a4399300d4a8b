#pragma once
// CVPathComponent: a folder, photo event, album or artist that the select-all-like-this
// operations work on.

#include <cstdint>
#include <string>

namespace corvel {

enum PathComponentKind : std::int32_t {
    kComponentFolder = 0,
    kComponentEvent = 1,
    kComponentAlbum = 2,
    kComponentArtist = 3
};

struct CVPathComponent {
    std::int32_t kind = kComponentFolder;
    std::string source; // the folder path, or the event id, album or artist name
    std::string title;  // shown to the user

    // The title given, else the folder's name for a folder, else the source itself.
    static CVPathComponent initWithSourse(std::string source, std::string title, std::int32_t kind);
    // The library record key a kind matches on ("EventID", "AlbumName", "ArtistName"); empty for folders.
    static const char* parserKeyForPathComponentKind(std::int32_t kind);
};

} // namespace corvel

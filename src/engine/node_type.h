#pragma once
// Node types: the small integer that decides how a scanned item is compared, grouped,
// protected and shown.

#include <cstdint>
#include <string_view>

namespace corvel {

enum NodeType : std::int32_t {
    kNodeTypeUnknown = 0,
    kNodeTypeOther = 1,
    kNodeTypeDocument = 2,
    kNodeTypeImage = 3,
    kNodeTypeAudio = 4,
    kNodeTypeVideo = 5,
    kNodeTypeArchive = 6,
    kNodeTypePlainFolder = 7,
    kNodeTypePackage = 8,
    kNodeTypeApplication = 9,
    kNodeTypeITunesLibrary = 10,
    kNodeTypeCurrentITunesLibrary = 11,
    kNodeTypeNewerITunesLibrary = 12,
    kNodeTypeIPhotoLibrary = 13,
    kNodeTypeCurrentIPhotoLibrary = 14,
    kNodeTypeNewerIPhotoLibrary = 15,
    kNodeTypePhotoBoothLibrary = 16,
    kNodeTypeApertureLibrary = 17,
    kNodeTypeDocumentPackage = 18,
    kNodeTypeProjectPackage = 19,
};

inline bool isFolderType(NodeType type) {
    return type > 6;
}
inline bool isMediaLibType(NodeType type) {
    return type >= 10 && type <= 17;
}
inline bool isIPhotoLibFileType(NodeType type) {
    return type >= 13 && type <= 15;
}
inline bool isITunesLibFileType(NodeType type) {
    return type >= 10 && type <= 12;
}

// Compares dotted version strings ("12.4.1.6"): 1 when a is newer, -1 when older, 0
// when equal. Missing components count as 0; non-numeric text in a component compares
// by its leading number.
int compareVersion(std::string_view a, std::string_view b);

} // namespace corvel

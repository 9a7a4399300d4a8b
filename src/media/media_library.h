#pragma once
// The records read from one media library's description file, with look-ups by path.

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/property_value.h"

namespace corvel {

// Library description files are untrusted and read whole at most this large (the same
// bound as any property list); larger ones are logged and count as no library file.
inline constexpr std::size_t kMaxLibraryFileBytes = std::size_t{512} << 20;
// Text the photo library reader takes from one element, and beyond the file's own size
// from the whole document (entity references can multiply text). Past either the reader
// stops and the library counts as malformed.
inline constexpr std::size_t kMaxLibraryElementTextBytes = std::size_t{1} << 20;
inline constexpr std::size_t kMaxLibraryTextBeyondFileBytes = std::size_t{16} << 20;

// Keys of a photo record.
inline constexpr const char* kEventNameKey = "EventName";
inline constexpr const char* kEventIDKey = "EventID";
inline constexpr const char* kPhotoPathKey = "PhotoPath";
inline constexpr const char* kPhotoVersionKey = "iPhotoVersion";
inline constexpr const char* kPhotoIsMovieKey = "PhotoIsMovie";
// Keys of a track record.
inline constexpr const char* kTrackTypeKey = "TrackType";
inline constexpr const char* kTrackNameKey = "TrackName";
inline constexpr const char* kTrackPathKey = "TrackPath";
inline constexpr const char* kArtistNameKey = "ArtistName";
inline constexpr const char* kAlbumNameKey = "AlbumName";
inline constexpr const char* kPlayCountKey = "PlayCount";
inline constexpr const char* kPlayDateKey = "PlayDate";
inline constexpr const char* kRatingKey = "Rating";
inline constexpr const char* kNumberOfTagsKey = "NumberOfTags";

// Track kinds of "TrackType".
enum class TrackType : int { Music = 0, Movie = 1, Book = 2, Audiobook = 3, Podcast = 4 };

// Records of one library, in file order, with the first record of each path indexed.
class RecordIndex {
public:
    void setRecords(std::vector<PropertyValue> records, std::string_view pathKey);
    const std::vector<PropertyValue>& records() const { return m_records; }
    // The first record whose path key equals the path; a null value when there is none.
    PropertyValue recordForPath(std::string_view path) const;

private:
    std::vector<PropertyValue> m_records;
    std::unordered_map<std::string, std::size_t> m_byPath;
};

class CViPhotoLibrary {
public:
    explicit CViPhotoLibrary(std::string libraryPath) : m_libraryPath(std::move(libraryPath)) {}
    const std::string& libraryPath() const { return m_libraryPath; }
    const std::string& libraryVersion() const { return m_libraryVersion; }
    const std::vector<PropertyValue>& photosArray() const { return m_photos.records(); }
    void setPhotosArray(std::vector<PropertyValue> photos) {
        m_photos.setRecords(std::move(photos), kPhotoPathKey);
    }
    // The record of the photo at that path as the library writes it, or null.
    PropertyValue libraryEventForPath(std::string_view path) const { return m_photos.recordForPath(path); }

private:
    std::string m_libraryPath;
    std::string m_libraryVersion;
    RecordIndex m_photos;
};

class CViTunesLibrary {
public:
    explicit CViTunesLibrary(std::string libraryPath) : m_libraryPath(std::move(libraryPath)) {}
    const std::string& libraryPath() const { return m_libraryPath; }
    const std::string& libraryVersion() const { return m_libraryVersion; }
    const std::vector<PropertyValue>& tracksArray() const { return m_tracks.records(); }
    void setTracksArray(std::vector<PropertyValue> tracks) {
        m_tracks.setRecords(std::move(tracks), kTrackPathKey);
    }
    PropertyValue trackInfoAtPath(std::string_view path) const { return m_tracks.recordForPath(path); }

private:
    std::string m_libraryPath;
    std::string m_libraryVersion;
    RecordIndex m_tracks;
};

} // namespace corvel

#pragma once
// CViPhotoParser: reads a photo library's "AlbumData.xml" with a streaming XML reader
// into photo records (keys in media_library.h). Events come from the "List of Rolls",
// photos from the "Master Image List"; each photo takes the event that the last "Roll"
// value named since the previous photo ("Unknown" and "-1" when none matched).
//
// The file is untrusted: only a regular file of at most kMaxLibraryFileBytes is read (it
// is opened without blocking and without following a link), without network access; no
// external DTD or entity is loaded, and libxml2's limits on huge input stay on. Internal
// and predefined entities are expanded, but the text taken from one element is bounded
// by kMaxLibraryElementTextBytes and the text of the whole document may pass the bytes
// read by at most kMaxLibraryTextBeyondFileBytes: past either the reader stops. A
// malformed or stopped file yields the records read so far, and a log line.

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/file_io.h"
#include "platform/property_value.h"

namespace corvel {

class UserDefaults;

// User-defaults key: photo paths removed from photo libraries by this program.
inline constexpr const char* kRemovedPhotosKey = "RemovedPhotos";

class CViPhotoParser {
public:
    explicit CViPhotoParser(UserDefaults& defaults);

    // Parses the file on the calling thread. With checkRemovedFiles, photos listed in
    // "RemovedPhotos" get no record; without, that library's entries are dropped from
    // the list first. Answers false when the file could not be read (missing, not a
    // regular file, a link, too large), was malformed, expanded to more text than the
    // bounds allow, or shouldStop (polled between chunks) answered true; records read
    // before the fault are kept.
    bool parseXMLFile(const std::string& path, bool checkRemovedFiles, const StopCheck& shouldStop = {});
    const std::vector<PropertyValue>& getPhotosArray() const { return m_photos; }

    // Drops from "RemovedPhotos" every entry that contains the library folder (the
    // description file's path without "AlbumData.xml").
    void refreshRemovedPhotosListForPath(const std::string& albumDataPath);
    bool photoContainsInAlreadyRemovedList(const std::string& path) const;

    // SAX events; public for the reader's callbacks.
    void startElement(std::string_view name);
    void endElement();
    // False once the text passes the bounds: the reader must stop.
    bool characters(std::string_view text);

private:
    void reset();
    void handleText(const std::string& text);
    void emitPhoto();

    UserDefaults& m_defaults;

    // What the value after the last key read will be.
    enum class Expected {
        Nothing,
        Version,   // the string after "Application Version"
        RollID,    // the integer after "RollID"
        RollName,  // the string pieces after "RollName"
        PhotoPath, // the string pieces after "ImagePath"
        MediaType, // the string after "MediaType"
        PhotoRoll, // the integer after "Roll": the photo's event
    };
    void expectAfterKey(const std::string& key);
    void completeStringValue();

    bool m_inList = false; // inside the list being read (rolls, then the master list)
    Expected m_expected = Expected::Nothing;
    bool m_mediaTypeIsMovie = false;
    bool m_processedMediaType = false;
    bool m_imagePathComplete = false;
    bool m_needToCheckRemovedFiles = false;
    std::int64_t m_keyDepth = 0;
    // Bytes of the file handed to the reader, text taken from the current element and
    // from the whole document, and whether that text passed its bounds.
    std::size_t m_bytesRead = 0;
    std::size_t m_elementTextBytes = 0;
    std::size_t m_documentTextBytes = 0;
    bool m_textLimitExceeded = false;
    std::int64_t m_eventID = -1;
    std::string m_currentList;
    std::string m_currentKey;
    std::string m_eventName;
    std::string m_appVersion;
    std::string m_currentImagePath;
    std::string m_stringValueParts;
    PropertyValue m_eventDict;
    // Event names by their roll id, as read from the list of rolls.
    std::unordered_map<std::string, std::string> m_eventNames;
    std::vector<PropertyValue> m_photos;
    std::set<std::string, std::less<>> m_removedFiles;
};

} // namespace corvel

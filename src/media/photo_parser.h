#pragma once
// CViPhotoParser: reads a photo library's "AlbumData.xml" with a streaming XML reader
// into photo records (keys in media_library.h). Events come from the "List of Rolls",
// photos from the "Master Image List"; each photo takes the event that the last "Roll"
// value named since the previous photo ("Unknown" and "-1" when none matched).
//
// The file is untrusted: it is read without network access, no external DTD or entity
// is loaded (internal and predefined entities are expanded), and libxml2's limits on
// huge input stay on. A malformed file yields the records read so far, and a log line.

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/property_value.h"

namespace corvel {

class UserDefaults;

// User-defaults key: photo paths removed from photo libraries by this program.
inline constexpr const char* kRemovedPhotosKey = "RemovedPhotos";

class CViPhotoParser {
public:
    explicit CViPhotoParser(UserDefaults& defaults);

    // Parses the file. With checkRemovedFiles, photos listed in "RemovedPhotos" get no
    // record; without, that library's entries are dropped from the list first. Answers
    // false when the file could not be read or was malformed (records read before the
    // fault are kept).
    bool parseXMLFile(const std::string& path, bool checkRemovedFiles);
    const std::vector<PropertyValue>& getPhotosArray() const { return m_photos; }

    // Drops from "RemovedPhotos" every entry that contains the library folder (the
    // description file's path without "AlbumData.xml").
    void refreshRemovedPhotosListForPath(const std::string& albumDataPath);
    bool photoContainsInAlreadyRemovedList(const std::string& path) const;

    // SAX events; public for the reader's callbacks.
    void startElement(std::string_view name);
    void endElement();
    void characters(std::string_view text);

private:
    void reset();
    void handleText(const std::string& text);
    void emitPhoto();

    UserDefaults& m_defaults;

    bool m_gotToList = false;
    bool m_gotNewRollID = false;
    bool m_gotNewRollName = false;
    bool m_gotNewPhotoEvent = false;
    bool m_gotNewPhotoPath = false;
    bool m_gotVersion = false;
    bool m_gotMediaType = false;
    bool m_mediaTypeIsMovie = false;
    bool m_processedMediaType = false;
    bool m_imagePathComplete = false;
    bool m_needToCheckRemovedFiles = false;
    std::int64_t m_keyDepth = 0;
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

#include "itunes_parser.h"

#include "media_library.h"
#include "platform/file_url.h"
#include "platform/property_list.h"
#include "platform/system_log.h"

namespace corvel {

PropertyValue CViTunesParser::trackRecord(const PropertyValue& entry) {
    PropertyValue record(PropertyValue::Dictionary{});
    std::string path;
    if (const std::string* location = entry["Location"].asString())
        path = filePathFromURLString(*location).value_or(std::string());

    TrackType type = TrackType::Music;
    if (!entry["Podcast"].isNull())
        type = TrackType::Podcast;
    else if (path.find("/Audiobooks/") != std::string::npos)
        type = TrackType::Audiobook;
    else if (!entry["Movie"].isNull())
        type = TrackType::Movie;
    else if (path.find("/Books/") != std::string::npos)
        type = TrackType::Book;
    record.set(kTrackTypeKey, static_cast<int>(type));

    if (!entry["Name"].isNull())
        record.set(kTrackNameKey, entry["Name"]);
    record.set(kTrackPathKey, path);
    if (type == TrackType::Music) {
        if (!entry["Artist"].isNull())
            record.set(kArtistNameKey, entry["Artist"]);
        if (!entry["Album"].isNull())
            record.set(kAlbumNameKey, entry["Album"]);
    }
    if (!entry["Play Count"].isNull())
        record.set(kPlayCountKey, entry["Play Count"]);
    if (!entry["Play Date"].isNull())
        record.set(kPlayDateKey, entry["Play Date"]);
    if (!entry["Rating"].isNull())
        record.set(kRatingKey, entry["Rating"]);
    record.set(kNumberOfTagsKey, static_cast<unsigned long long>(entry.count()));
    return record;
}

bool CViTunesParser::parseXMLFile(const std::string& path, const StopCheck& shouldStop) {
    m_tracks.clear();
    PropertyValue root;
    CVError error;
    if (!readPropertyListFile(path, root, RegularFileRead{kMaxLibraryFileBytes, false, shouldStop}, &error)) {
        systemLog("Failed to read iTunes library " + path + ": " + error.localizedDescription());
        return false;
    }
    const PropertyValue::Dictionary* tracks = root["Tracks"].asDictionary();
    if (!tracks) {
        systemLog("iTunes library " + path + " has no Tracks dictionary");
        return false;
    }
    m_tracks.reserve(tracks->size());
    // Entries are taken in reverse order of enumeration; the order carries no meaning.
    for (auto it = tracks->rbegin(); it != tracks->rend(); ++it)
        if (it->second.isDictionary())
            m_tracks.push_back(trackRecord(it->second));
    return true;
}

} // namespace corvel

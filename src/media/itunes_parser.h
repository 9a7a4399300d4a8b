#pragma once
// CViTunesParser: reads an iTunes library description ("iTunes Library.xml", a property
// list) into track records (keys in media_library.h).

#include <string>
#include <vector>

#include "platform/file_io.h"
#include "platform/property_value.h"

namespace corvel {

class CViTunesParser {
public:
    // Reads the file on the calling thread: a regular file of at most
    // kMaxLibraryFileBytes, opened without blocking and without following a link. A
    // missing, unreadable or malformed file, a fifo, a device, a link, a larger file, or
    // a read ended by shouldStop (polled between chunks) leaves no tracks and logs a
    // line; answers whether the file was read.
    bool parseXMLFile(const std::string& path, const StopCheck& shouldStop = {});
    const std::vector<PropertyValue>& getTracksArray() const { return m_tracks; }

    // The record for one entry of the "Tracks" dictionary.
    static PropertyValue trackRecord(const PropertyValue& entry);

private:
    std::vector<PropertyValue> m_tracks;
};

} // namespace corvel

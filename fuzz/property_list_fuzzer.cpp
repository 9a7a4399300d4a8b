// Reads bytes as a property list (XML or binary); a list that reads is written in both
// formats, and each written text must read back. The XML text must read back to a list
// that writes the same XML text as the first (settings files are XML); binary lists go
// through libplist, whose dates cover only 1901 to 2038, so they need only read back. (Values the formats
// cannot carry as they are, such as a string that is not valid UTF-8, are written as data, so the XML text,
// not the value, is compared; the binary writer may lay shared objects out differently for equal values.)

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/property_list.h"

using namespace corvel;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    PropertyValue value;
    CVError error;
    if (!readPropertyList(bytes, value, &error))
        return 0;
    const std::string xml = propertyListData(value, PropertyListFormat::XML);
    for (const auto format : {PropertyListFormat::XML, PropertyListFormat::Binary}) {
        const std::string written = propertyListData(value, format);
        if (written.empty())
            continue; // a value the format cannot carry
        PropertyValue back;
        CVError backError;
        if (!readPropertyList(written, back, &backError))
            std::abort(); // the writer produced a list the reader refuses
        if (format == PropertyListFormat::XML && propertyListData(back, PropertyListFormat::XML) != xml)
            std::abort(); // the list did not read back as written
    }
    return 0;
}

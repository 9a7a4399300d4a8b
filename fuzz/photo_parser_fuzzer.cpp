// Feeds bytes to the photo library parser as the library file.

#include <cstdint>

#include "fuzz_input_file.h"
#include "media/photo_parser.h"
#include "platform/user_defaults.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static corvel::UserDefaults defaults(corvel::fuzz::scratchFolder() + "/defaults.plist");
    const std::string path = corvel::fuzz::writeInput("AlbumData.xml", data, size);
    corvel::CViPhotoParser parser(defaults);
    (void)parser.parseXMLFile(path, true);
    return 0;
}

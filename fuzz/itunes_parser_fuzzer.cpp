// Feeds bytes to the music library parser as the library file.

#include <cstdint>

#include "fuzz_input_file.h"
#include "media/itunes_parser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string path = corvel::fuzz::writeInput("iTunes Library.xml", data, size);
    corvel::CViTunesParser parser;
    (void)parser.parseXMLFile(path);
    return 0;
}

#include <gtest/gtest.h>

#include "media/itunes_parser.h"
#include "media/photo_parser.h"
#include "platform/user_defaults.h"
#include "support/fuzz_regressions.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

using test::fuzzRegressions;

// The harnesses write each input to a file and hand its path to the parser; so do these.
TEST(MediaFuzzRegressions, MusicLibrariesParseOrFailCleanly) {
    test::TempTree tree;
    const auto inputs = fuzzRegressions("itunes_parser");
    ASSERT_GE(inputs.size(), 1u);
    for (const auto& input : inputs) {
        SCOPED_TRACE(input.name);
        CViTunesParser parser;
        if (!parser.parseXMLFile(tree.file(input.name, input.bytes))) {
            EXPECT_TRUE(parser.getTracksArray().empty());
        }
    }
}

TEST(MediaFuzzRegressions, PhotoLibrariesParseOrFailCleanly) {
    test::TempTree tree;
    UserDefaults defaults{tree / "defaults.plist"};
    const auto inputs = fuzzRegressions("photo_parser");
    ASSERT_GE(inputs.size(), 1u);
    for (const auto& input : inputs) {
        SCOPED_TRACE(input.name);
        CViPhotoParser parser(defaults);
        (void)parser.parseXMLFile(tree.file(input.name, input.bytes), true);
    }
}

// The full-size entity bomb (a 100 KB internal entity referenced 20,000 times, 2 GB once
// expanded) is made here rather than kept as a file.
TEST(MediaFuzzRegressions, AFullSizeEntityBombIsRefused) {
    test::TempTree tree;
    std::string bomb = "<?xml version=\"1.0\"?>\n<!DOCTYPE plist [<!ENTITY big \"" +
                       std::string(std::size_t{100} * 1024, 'x') +
                       "\">]>\n<plist><dict><key>List of Rolls</key><array><dict><key>RollName</key><string>";
    for (int i = 0; i < 20000; ++i)
        bomb += "&big;";
    bomb += "</string></dict></array></dict></plist>\n";
    const std::string path = tree.file("AlbumData.xml", bomb);
    UserDefaults defaults{tree / "defaults.plist"};
    CViPhotoParser photos(defaults);
    EXPECT_FALSE(photos.parseXMLFile(path, true));
    CViTunesParser music;
    EXPECT_FALSE(music.parseXMLFile(path));
}

} // namespace
} // namespace corvel

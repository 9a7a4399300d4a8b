#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>

#include "platform/percent_encoding.h"
#include "platform/trash_info.h"
#include "platform/trash_names.h"

namespace corvel {
namespace {

bool isValidUtf8(std::string_view s) {
    for (std::size_t i = 0; i < s.size();) {
        const auto c = static_cast<unsigned char>(s[i]);
        const std::size_t length = c < 0x80           ? 1
                                   : (c >> 5) == 0x6  ? 2
                                   : (c >> 4) == 0xE  ? 3
                                   : (c >> 3) == 0x1E ? 4
                                                      : 0;
        if (length == 0 || i + length > s.size())
            return false;
        for (std::size_t k = 1; k < length; ++k)
            if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80)
                return false;
        i += length;
    }
    return true;
}

struct NameCase {
    std::string name;
    unsigned attempt;
    bool keepExtension;
    std::string expected;
};

class TrashEntryNames : public ::testing::TestWithParam<NameCase> {};

TEST_P(TrashEntryNames, CounterGoesBeforeTheExtension) {
    const NameCase& c = GetParam();
    EXPECT_EQ(trashEntryName(c.name, c.attempt, c.keepExtension), c.expected);
}

INSTANTIATE_TEST_SUITE_P(Cases, TrashEntryNames,
                         ::testing::Values(NameCase{"report.pdf", 1, true, "report.pdf"},
                                           NameCase{"report.pdf", 2, true, "report.2.pdf"},
                                           NameCase{"report.pdf", 3, true, "report.3.pdf"},
                                           NameCase{"archive.tar.gz", 2, true, "archive.tar.2.gz"},
                                           NameCase{".bashrc", 2, true, ".bashrc.2"},
                                           NameCase{"README", 12, true, "README.12"},
                                           NameCase{"photos.2020", 2, false, "photos.2020.2"},
                                           NameCase{"file.", 2, true, "file..2"},
                                           NameCase{"name.averyveryverylongextension", 2, true,
                                                    "name.averyveryverylongextension.2"},
                                           NameCase{"caf\xff.txt", 2, true, "caf\xff.2.txt"}));

TEST(TrashEntryNames, LongNamesAreShortenedToLeaveRoomForTheInfoSuffix) {
    const std::string ascii(255, 'a');
    EXPECT_EQ(trashEntryName(ascii, 1, true), std::string(kMaxTrashEntryName, 'a'));
    EXPECT_EQ(trashEntryName(ascii, 2, true), std::string(kMaxTrashEntryName - 2, 'a') + ".2");
    EXPECT_EQ(trashEntryName(ascii, 1, true).size() + std::string(".trashinfo").size(), 255u);

    const std::string withExtension = std::string(251, 'b') + ".jpg";
    EXPECT_EQ(trashEntryName(withExtension, 1, true), std::string(kMaxTrashEntryName - 4, 'b') + ".jpg");
    EXPECT_EQ(trashEntryName(withExtension, 10, true), std::string(kMaxTrashEntryName - 7, 'b') + ".10.jpg");

    // 127 two-byte characters (254 bytes): cut whole characters, never half of one.
    std::string accents;
    for (int i = 0; i < 127; ++i)
        accents += "\xc3\xa9";
    for (unsigned attempt : {1u, 2u, 100u}) {
        const std::string shortened = trashEntryName(accents, attempt, true);
        EXPECT_LE(shortened.size(), kMaxTrashEntryName);
        EXPECT_GE(shortened.size(), kMaxTrashEntryName - 3);
        EXPECT_TRUE(isValidUtf8(shortened)) << attempt;
    }
    // Four-byte characters, and a name that is not UTF-8 at all (cut anywhere).
    std::string emoji;
    for (int i = 0; i < 63; ++i)
        emoji += "\xf0\x9f\x98\x80";
    EXPECT_TRUE(isValidUtf8(trashEntryName(emoji, 1, true)));
    EXPECT_EQ(trashEntryName(emoji, 1, true).size(), 244u);
    EXPECT_EQ(trashEntryName(std::string(250, '\xff'), 1, true).size(), kMaxTrashEntryName);
}

TEST(TrashEntryNames, TruncateUtf8KeepsWholeCharacters) {
    EXPECT_EQ(truncateUtf8("abc", 5), "abc");
    EXPECT_EQ(truncateUtf8("ab\xc3\xa9", 3), "ab");
    EXPECT_EQ(truncateUtf8("ab\xc3\xa9", 4), "ab\xc3\xa9");
    EXPECT_EQ(truncateUtf8("a\xe2\x82\xac", 3), "a");
    EXPECT_EQ(truncateUtf8("a\xe2\x82\xac", 2), "a");
}

TEST(PercentEncoding, KeepsUnreservedBytesAndSlashesAndEncodesTheRest) {
    EXPECT_EQ(percentEncodePath("/home/ada/Report-2_v1.0~.pdf"), "/home/ada/Report-2_v1.0~.pdf");
    EXPECT_EQ(percentEncodePath("/a b/c%d"), "/a%20b/c%25d");
    EXPECT_EQ(percentEncodePath("caf\xff"), "caf%FF");
    EXPECT_EQ(percentEncodePath("\xc3\xa9t\xc3\xa9"), "%C3%A9t%C3%A9");
    EXPECT_EQ(percentEncodePath("line\nbreak=+&#?"), "line%0Abreak%3D%2B%26%23%3F");
    EXPECT_EQ(percentDecode("/a%20b/c%25d%ff%C3%A9"), "/a b/c%d\xff\xc3\xa9");
    EXPECT_EQ(percentDecode("100%"), "100%");
    EXPECT_EQ(percentDecode("%zz%4"), "%zz%4");
    std::string everyByte;
    for (int b = 1; b < 256; ++b)
        everyByte += static_cast<char>(b);
    EXPECT_EQ(percentDecode(percentEncodePath(everyByte)), everyByte);
}

TEST(TrashInfoText, HasPathAndLocalDeletionDate) {
    const char* saved = std::getenv("TZ");
    const std::string savedZone = saved ? saved : "";
    ::setenv("TZ", "UTC0", 1);
    ::tzset();
    EXPECT_EQ(trashInfoText("/home/ada/caf\xff b.txt", 1093991528),
              "[Trash Info]\nPath=/home/ada/caf%FF%20b.txt\nDeletionDate=2004-08-31T22:32:08\n");
    ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1); // summer time: two hours ahead
    ::tzset();
    EXPECT_EQ(trashDeletionDate(1093991528), "2004-09-01T00:32:08");
    if (saved)
        ::setenv("TZ", savedZone.c_str(), 1);
    else
        ::unsetenv("TZ");
    ::tzset();
}

} // namespace
} // namespace corvel

#include <gtest/gtest.h>

#include "engine/file_sizer.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

const std::string kNbsp = "\xC2\xA0";

TEST(FileSizer, DisplayStringsRoundHalfToEvenPerUnit) {
    struct Case {
        std::uint64_t bytes;
        std::string shown;
    };
    for (const Case& c :
         {Case{1500, "2"}, Case{2500, "2"}, Case{999, "1"}, Case{500, "0"}, Case{1, "0"},
          Case{1536000, "1.5"}, Case{1000000, "1"}, Case{1250000, "1.2"}, Case{1350000, "1.4"},
          Case{2345678901, "2.35"}, Case{1000000000000, "1"}, Case{1234567890123456, "1.2346"}}) {
        const std::string expected = c.shown;
        EXPECT_EQ(HVFileSizer::displayItemSizeNumberFromSize(c.bytes), expected) << c.bytes;
    }
    EXPECT_EQ(HVFileSizer::displayItemSizeFromSize(1536000), "1.5" + kNbsp + "MB");
    EXPECT_EQ(HVFileSizer::displayItemSizeFromSize(1500), "2" + kNbsp + "KB");
    EXPECT_EQ(HVFileSizer::displayItemSizeFromSize(0), "Zero" + kNbsp + "KB");
    EXPECT_EQ(HVFileSizer::displayItemSizeFromSizeInBase2(1572864), "1.5" + kNbsp + "MB");
    EXPECT_EQ(HVFileSizer::displayItemSizeDimensionFromSize(5000000000), "GB");
    EXPECT_EQ(HVFileSizer::displayItemSizeDimensionFromSize(0), "");
}

TEST(FileSizer, SizeFieldStringsRoundDownInSinglePrecision) {
    struct Case {
        std::uint64_t bytes;
        bool finder;
        std::string shown;
    };
    for (const Case& c :
         {Case{300, false, "0.3 KB"}, Case{1000000, false, "1000 KB"}, Case{1000001, false, "1 MB"},
          Case{1555555, false, "1.56 MB"}, Case{2500000000, false, "2.5 GB"}, Case{100, true, "4 KB"},
          Case{4000, true, "8 KB"}, Case{0, false, "Zero KB"}, Case{UINT64_MAX, false, "Unavailable"}})
        EXPECT_EQ(stringWithSize(c.bytes, c.finder), c.shown) << c.bytes;
    // Rounded to hundredths first, then cut (not rounded) to the digits asked for.
    EXPECT_EQ(stringWithSize(1555555, false, 1), "1.5 MB");
    EXPECT_EQ(stringWithSize(1990000, false, 0), "1 MB");
}

TEST(FileSizer, TheSizeFieldTransformerSumsArraysAndSkipsUnknownSizes) {
    EXPECT_EQ(sizeToStringTransformedValue(PropertyValue::Array{100, PropertyValue(UINT64_MAX), 200}),
              "0.3 KB");
    EXPECT_EQ(sizeToStringTransformedValue(PropertyValue(1555555)), "1.56 MB");
    EXPECT_EQ(sizeToStringTransformedValue(PropertyValue()), "");
    EXPECT_EQ(sizeToStringTransformedValue(PropertyValue("")), "");
    EXPECT_EQ(sizeToStringTransformedValue(PropertyValue("text")), "Zero KB");
}

TEST(FileSizer, DiskUsageChargesHardLinkedFilesNothing) {
    test::TempTree tree;
    const std::string a = tree.file("a", std::string(10000, 'x'));
    struct stat st {};
    ASSERT_EQ(::stat(a.c_str(), &st), 0);
    EXPECT_EQ(HVFileSizer::itemSizeWithStat(st), static_cast<std::uint64_t>(st.st_blocks) * 512);
    HVFileSizer::setReturnUncompressedFileSize(true);
    EXPECT_EQ(HVFileSizer::itemSizeWithStat(st) % static_cast<std::uint64_t>(st.st_blksize), 0u);
    EXPECT_GE(HVFileSizer::itemSizeWithStat(st), 10000u);
    HVFileSizer::setReturnUncompressedFileSize(false);
    ASSERT_EQ(::link(a.c_str(), (tree / "b").c_str()), 0);
    ASSERT_EQ(::stat(a.c_str(), &st), 0);
    EXPECT_EQ(HVFileSizer::itemSizeWithStat(st), 0u);
    tree.file("sub/c", std::string(5000, 'y'));
    EXPECT_GT(HVFileSizer::itemSizeAtPath(tree.path()), 0u);
    EXPECT_EQ(HVFileSizer::itemSizeAtPath(tree / "missing"), 0u);
}

TEST(FileSizer, AMeasurementOnTheStopListEndsWithoutAnAnswer) {
    test::TempTree tree;
    tree.file("d/a", std::string(10000, 'x'));
    tree.file("d/e/b", std::string(7000, 'y'));
    const std::string folder = tree / "d";
    const std::uint64_t whole = HVFileSizer::itemSizeAtPath(folder);
    ASSERT_GT(whole, 0u);
    EXPECT_EQ(HVFileSizer::itemSizeAtPathAbleToStop(folder), whole);
    HVFileSizer::stopScanningForPath(folder);
    EXPECT_EQ(HVFileSizer::itemSizeAtPathAbleToStop(folder), std::nullopt);
    EXPECT_EQ(HVFileSizer::itemSizeAtPathAbleToStop(tree / "d/e"), HVFileSizer::itemSizeAtPath(tree / "d/e"))
        << "only the listed path stops";
    HVFileSizer::restorePathsToBeStopped();
    EXPECT_EQ(HVFileSizer::itemSizeAtPathAbleToStop(folder), whole);
}

} // namespace
} // namespace corvel

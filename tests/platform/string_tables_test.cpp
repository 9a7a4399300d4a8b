#include <gtest/gtest.h>

#include "platform/string_tables.h"
#include "platform/system_log.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

TEST(StringTables, ShippedTablesAnswerTheirKeys) {
    EXPECT_EQ(localized("ButtonTitle_NewScan", "Buttons"), "New Scan");
    EXPECT_FALSE(localized("StatusTextViewStatus_Scanning").empty());
    EXPECT_NE(localized("StatusTextViewStatus_Scanning"), "StatusTextViewStatus_Scanning");
}

TEST(StringTables, UnknownKeysAndTablesShowTheKey) {
    test::TempTree tree;
    tree.file("Localizable.strings", "<plist><dict><key>Hello</key><string>Hallo</string><key>Size</"
                                     "key><integer>3</integer></dict></plist>");
    tree.file("Broken.strings", "<plist><dict>");
    StringTables tables(tree.path());
    EXPECT_EQ(tables.localizedString("Hello"), "Hallo");
    EXPECT_EQ(tables.localizedString("Nope"), "Nope");
    EXPECT_EQ(tables.localizedString("Size"), "Size") << "a non-text value is not a text";
    EXPECT_EQ(tables.localizedValue("Size").toInt64(), 3);
    ScopedLogCapture log;
    EXPECT_EQ(tables.localizedString("Hello", "Broken"), "Hello");
    EXPECT_EQ(tables.localizedString("Hello", "Missing"), "Hello");
    EXPECT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(tables.localizedString("Again", "Missing"), "Again");
    EXPECT_EQ(log.lines().size(), 2u) << "a broken table is reported once";
}

TEST(StringTables, ACountPicksItsPluralForm) {
    test::TempTree tree;
    tree.file("Localizable.strings",
              "<plist><dict>"
              "<key>Both</key><dict><key>one</key><string>%lu copy</string><key>other</key><string>%lu "
              "copies</string></dict>"
              "<key>OnlyOther</key><dict><key>other</key><string>%lu items</string></dict>"
              "<key>NoForm</key><dict><key>few</key><string>x</string></dict>"
              "<key>Plain</key><string>%lu things</string>"
              "</dict></plist>");
    StringTables tables(tree.path());
    const struct {
        const char* key;
        std::uint64_t count;
        const char* text;
    } cases[] = {
        {"Both", 1, "%lu copy"},    {"Both", 0, "%lu copies"},   {"Both", 2, "%lu copies"},
        {"Both", 21, "%lu copies"}, {"Both", 101, "%lu copies"}, {"OnlyOther", 1, "%lu items"},
        {"Plain", 1, "%lu things"}, {"NoForm", 1, "NoForm"},     {"Missing", 1, "Missing"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(tables.localizedString(c.key, c.count), c.text) << c.key << " " << c.count;
    EXPECT_EQ(tables.localizedString("Both"), "%lu copies") << "without a count: the other form";
    EXPECT_EQ(localizedCount("TextFieldString_DuplicatesAmountAndSize", 1), "%1$@ in %2$lu duplicate");
    EXPECT_EQ(localizedCount("TextFieldString_DuplicatesAmountAndSize", 3), "%1$@ in %2$lu duplicates");
}

} // namespace
} // namespace corvel

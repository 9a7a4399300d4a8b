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

} // namespace
} // namespace corvel

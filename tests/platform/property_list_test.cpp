#include <gtest/gtest.h>

#include "platform/property_list.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

PropertyValue sampleValue() {
    PropertyValue::Dictionary d;
    d["bool"] = true;
    d["no"] = false;
    d["min"] = static_cast<long long>(INT64_MIN);
    d["max"] = static_cast<long long>(INT64_MAX);
    d["negative"] = -42;
    d["real"] = 3.25;
    d["name"] = "Fotos de verão – ĉiuj 写真 \U0001F600 <&>";
    d["empty"] = "";
    d["date"] = PropertyDate{1234567890.0};
    d["old date"] = PropertyDate{-86400.0 * 365};
    d["data"] = PropertyValue::Data{0, 1, 2, 0xFF, 0x80, 0};
    d["nested"] = PropertyValue::Array{
        PropertyValue::Array{1, PropertyValue::Array{"deep", PropertyValue::Dictionary{{"k", 2.5}}}},
        PropertyValue::Dictionary{}, PropertyValue::Array{}};
    return PropertyValue(d);
}

class PropertyListRoundTrip : public testing::TestWithParam<PropertyListFormat> {};

TEST_P(PropertyListRoundTrip, KeepsEveryKindOfValue) {
    const PropertyValue original = sampleValue();
    const std::string bytes = propertyListData(original, GetParam());
    PropertyValue back;
    CVError error;
    ASSERT_TRUE(readPropertyList(bytes, back, &error)) << error.localizedDescription();
    EXPECT_TRUE(back == original) << back.description();
    EXPECT_EQ(back["date"].type(), PropertyValue::Type::Date);
    EXPECT_EQ(back["data"].type(), PropertyValue::Type::Data);
}

TEST_P(PropertyListRoundTrip, LargeUnsignedValuesComeBackWithTheSameBits) {
    const PropertyValue original(PropertyValue::Dictionary{{"size", PropertyValue(UINT64_MAX - 5)}});
    PropertyValue back;
    ASSERT_TRUE(readPropertyList(propertyListData(original, GetParam()), back, nullptr));
    EXPECT_EQ(back["size"].toUInt64(), UINT64_MAX - 5);
}

TEST_P(PropertyListRoundTrip, TruncatedListsAreErrors) {
    const std::string bytes = propertyListData(sampleValue(), GetParam());
    // Cuts into the content: the XML loses at least its closing </dict>, the binary list its trailer.
    for (const std::size_t keep : {bytes.size() - 17, bytes.size() / 2, std::size_t{40}, std::size_t{9}}) {
        PropertyValue out = "untouched";
        CVError error;
        ASSERT_FALSE(readPropertyList(std::string_view(bytes).substr(0, keep), out, &error)) << keep;
        EXPECT_EQ(error.domain, kCorvelFileErrorDomain);
        EXPECT_FALSE(error.localizedDescription().empty());
        ASSERT_TRUE(out.isString());
        EXPECT_EQ(*out.asString(), "untouched");
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, PropertyListRoundTrip,
                         testing::Values(PropertyListFormat::XML, PropertyListFormat::Binary),
                         [](const auto& p) { return p.param == PropertyListFormat::XML ? "XML" : "Binary"; });

TEST(PropertyList, XmlDatesAreWholeSecondsAndNullsAreLeftOut) {
    PropertyValue v(PropertyValue::Dictionary{{"d", PropertyDate{1000.0}}, {"gone", PropertyValue()}});
    v.set("list", PropertyValue::Array{1, PropertyValue(), 2});
    PropertyValue back;
    ASSERT_TRUE(readPropertyList(propertyListData(v, PropertyListFormat::XML), back, nullptr));
    EXPECT_DOUBLE_EQ(back["d"].asDate()->secondsSince1970, 1000.0);
    EXPECT_EQ(back.asDictionary()->count("gone"), 0u);
    EXPECT_EQ(back["list"].count(), 2u);
}

TEST(PropertyList, MalformedInputIsAnErrorNotACrash) {
    const std::string inputs[] = {
        "",
        "not a list at all",
        "<plist><dict><integer>1</integer></dict></plist>",
        "<?xml version=\"1.0\"?><plist><dict><key>a</key>",
        std::string("bplist00") + std::string(40, '\xff'),
        std::string("bplist00\x55") + std::string(31, '\0'),
    };
    for (const auto& input : inputs) {
        PropertyValue out;
        CVError error;
        EXPECT_FALSE(readPropertyList(input, out, &error)) << input;
        EXPECT_FALSE(error.localizedDescription().empty());
    }
}

TEST(PropertyList, DeepXmlNestingIsRefusedBeforeParsing) {
    const int levels = 200000;
    std::string xml = "<plist>";
    for (int i = 0; i < levels; ++i)
        xml += "<array>";
    for (int i = 0; i < levels; ++i)
        xml += "</array>";
    xml += "</plist>";
    PropertyValue out;
    CVError error;
    EXPECT_FALSE(readPropertyList(xml, out, &error));
    EXPECT_NE(error.localizedDescription().find("nested"), std::string::npos);
}

TEST(PropertyList, ClosingTagsHiddenInCommentsDoNotHideDepth) {
    std::string xml = "<plist>";
    for (int i = 0; i < 1000; ++i)
        xml += "<dict><!-- </dict> --><key>k</key>";
    xml += "<true/>";
    for (int i = 0; i < 1000; ++i)
        xml += "</dict>";
    xml += "</plist>";
    EXPECT_EQ(propertyListNestingDepth(xml, 5000), 1000);
    PropertyValue out;
    EXPECT_TRUE(readPropertyList(xml, out, nullptr) == (1000 <= kMaxPropertyListDepth));
}

TEST(PropertyList, ModerateNestingIsAccepted) {
    PropertyValue v = "leaf";
    for (int i = 0; i < 100; ++i)
        v = PropertyValue(PropertyValue::Array{v});
    for (const auto format : {PropertyListFormat::XML, PropertyListFormat::Binary}) {
        const std::string bytes = propertyListData(v, format);
        EXPECT_EQ(propertyListNestingDepth(bytes, kMaxPropertyListDepth), 100);
        PropertyValue back;
        ASSERT_TRUE(readPropertyList(bytes, back, nullptr));
        EXPECT_TRUE(back == v);
    }
}

// A binary list whose only array contains itself.
std::string selfReferencingBinaryList() {
    std::string s = "bplist00";
    const std::size_t object = s.size();
    s += "\xA1"; // array of one element
    s += '\0';   // ... which is object 0, itself
    const std::size_t table = s.size();
    s += static_cast<char>(object);
    std::string trailer(32, '\0');
    trailer[6] = 1;  // offset size
    trailer[7] = 1;  // reference size
    trailer[15] = 1; // one object
    trailer[31] = static_cast<char>(table);
    return s + trailer;
}

TEST(PropertyList, BinaryReferenceCyclesAreRefused) {
    PropertyValue out;
    CVError error;
    EXPECT_FALSE(readPropertyList(selfReferencingBinaryList(), out, &error));
}

TEST(PropertyList, DeepBinaryNestingIsRefused) {
    PropertyValue v = 1;
    for (int i = 0; i < kMaxPropertyListDepth + 10; ++i)
        v = PropertyValue(PropertyValue::Array{v});
    const std::string bytes = propertyListData(v, PropertyListFormat::Binary);
    EXPECT_GT(propertyListNestingDepth(bytes, kMaxPropertyListDepth), kMaxPropertyListDepth);
    EXPECT_FALSE(readPropertyList(bytes, v, nullptr));
}

TEST(PropertyList, FilesAreWrittenAsXmlAndReadBack) {
    test::TempTree tree;
    const std::string path = tree / "settings.plist";
    CVError error;
    ASSERT_TRUE(writePropertyListFile(path, sampleValue(), &error)) << error.localizedDescription();
    EXPECT_EQ(test::TempTree::read(path).rfind("<?xml", 0), 0u);
    PropertyValue back;
    ASSERT_TRUE(readPropertyListFile(path, back, &error));
    EXPECT_TRUE(back == sampleValue());

    EXPECT_FALSE(readPropertyListFile(tree / "missing.plist", back, &error));
    EXPECT_EQ(error.domain, kPosixErrorDomain);
    tree.file("bad.plist", "<plist><dict>");
    EXPECT_FALSE(readPropertyListFile(tree / "bad.plist", back, &error));
    EXPECT_NE(error.localizedDescription().find("bad.plist"), std::string::npos);
}

} // namespace
} // namespace corvel

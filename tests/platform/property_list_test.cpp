#include <cstdint>
#include <gtest/gtest.h>
#include <tuple>
#include <vector>

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

TEST(PropertyList, NullsAreLeftOut) {
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
        std::string("bplist00") + std::string(1, '\x55') + std::string(31, '\0'),
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

// A binary list built from encoded objects; object 0 is the top. Offsets and references
// are two bytes wide.
std::string binaryList(const std::vector<std::string>& objects) {
    std::string s = "bplist00";
    std::vector<std::size_t> offsets;
    for (const auto& object : objects) {
        offsets.push_back(s.size());
        s += object;
    }
    const std::size_t table = s.size();
    for (const std::size_t offset : offsets) {
        s += static_cast<char>(offset >> 8);
        s += static_cast<char>(offset & 0xFF);
    }
    std::string trailer(32, '\0');
    trailer[6] = 2; // offset size
    trailer[7] = 2; // reference size
    trailer[14] = static_cast<char>(objects.size() >> 8);
    trailer[15] = static_cast<char>(objects.size() & 0xFF);
    trailer[30] = static_cast<char>(table >> 8);
    trailer[31] = static_cast<char>(table & 0xFF);
    return s + trailer;
}

std::string ref(std::size_t index) {
    return {static_cast<char>(index >> 8), static_cast<char>(index & 0xFF)};
}

// Reading a string that holds a NUL used to abort the process inside libplist.
struct NulCase {
    const char* name;
    std::string bytes;
};

class PropertyListNul : public testing::TestWithParam<NulCase> {};

TEST_P(PropertyListNul, IsAnErrorNotAnAbort) {
    PropertyValue out = "untouched";
    CVError error;
    EXPECT_FALSE(readPropertyList(GetParam().bytes, out, &error));
    EXPECT_NE(error.localizedDescription().find("NUL"), std::string::npos) << error.localizedDescription();
    EXPECT_EQ(out.toString(), "untouched");
}

INSTANTIATE_TEST_SUITE_P(
    Lists, PropertyListNul,
    testing::Values(NulCase{"XmlString", "<plist><dict><key>a</key><string>x&#0;y</string></dict></plist>"},
                    NulCase{"XmlHexString", "<plist><array><string>&#x00;</string></array></plist>"},
                    NulCase{"XmlKey", "<plist><dict><key>a&#000;</key><true/></dict></plist>"},
                    NulCase{"XmlRawByte", std::string("<plist><string>a\0b</string></plist>", 34)},
                    NulCase{"BinaryAsciiString", binaryList({"\xA1" + ref(1), std::string("\x53"
                                                                                          "a\0b",
                                                                                          4)})},
                    NulCase{"BinaryUtf16String",
                            binaryList({"\xA1" + ref(1), std::string("\x62\0a\0\0", 5)})},
                    NulCase{"BinaryKey", binaryList({"\xD1" + ref(1) + ref(2),
                                                     std::string("\x52"
                                                                 "k\0",
                                                                 3),
                                                     "\x09"})}),
    [](const auto& p) { return std::string(p.param.name); });

// Arrays that each reference the next level twice: `levels` levels expand to 2^levels leaves.
std::string referenceBomb(int levels) {
    std::vector<std::string> objects;
    objects.reserve(static_cast<std::size_t>(levels) + 1);
    for (int i = 0; i < levels; ++i)
        objects.push_back("\xA2" + ref(i + 1) + ref(i + 1));
    objects.emplace_back("\x09"); // true
    return binaryList(objects);
}

TEST(PropertyList, SharedReferencesThatExpandBeyondTheNodeLimitAreRefused) {
    const std::string bomb = referenceBomb(40);
    ASSERT_LT(bomb.size(), 1000u);
    PropertyValue out;
    CVError error;
    EXPECT_FALSE(readPropertyList(bomb, out, &error));
    EXPECT_NE(error.localizedDescription().find("nodes"), std::string::npos) << error.localizedDescription();
    EXPECT_GT(propertyListNodeCount(bomb), propertyListNodeLimit(bomb.size()));
}

TEST(PropertyList, SharedReferencesWithinTheLimitAreRead) {
    const std::string list = referenceBomb(12);
    EXPECT_EQ(propertyListNodeCount(list), (std::uint64_t{1} << 13) - 1);
    PropertyValue out;
    CVError error;
    ASSERT_TRUE(readPropertyList(list, out, &error)) << error.localizedDescription();
    const PropertyValue* leaf = &out;
    for (int i = 0; i < 12; ++i)
        leaf = &(*leaf)[std::size_t{1}];
    EXPECT_EQ(leaf->asBool(), true);
}

// A value too large for libplist's binary writer (which took 15 s for a million shared
// values) is written as XML only.
TEST(PropertyList, BinaryWriterRefusesTreesBeyondItsLimit) {
    for (const auto& [count, binary] :
         {std::pair{kMaxBinaryWriteNodes - 1, true}, std::pair{kMaxBinaryWriteNodes, false}}) {
        PropertyValue::Array items(count, PropertyValue(true)); // with the array itself: count + 1 values
        const PropertyValue value{std::move(items)};
        EXPECT_FALSE(propertyListData(value, PropertyListFormat::XML).empty());
        EXPECT_EQ(propertyListData(value, PropertyListFormat::Binary).empty(), !binary) << count;
    }
}

// A small binary list that shares its arrays into a million values is refused when read.
TEST(PropertyList, SmallListsExpandingFarAreRefused) {
    PropertyValue out;
    CVError error;
    EXPECT_TRUE(readPropertyList(referenceBomb(15), out, &error))
        << "65,535 values: " << error.localizedDescription();
    EXPECT_FALSE(readPropertyList(referenceBomb(16), out, &error)) << "131,071 values";
}

// Strings that a property list cannot carry as text are written as data, so that no
// byte is lost and every reader accepts the file.
struct UncarriedString {
    const char* name;
    std::string bytes;
};

class PropertyListUncarriedString
    : public testing::TestWithParam<std::tuple<PropertyListFormat, UncarriedString>> {};

bool validUtf8(std::string_view s) {
    for (std::size_t i = 0; i < s.size();) {
        const auto c = static_cast<unsigned char>(s[i]);
        const std::size_t n = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
        if (n == 0 || i + n > s.size())
            return false;
        for (std::size_t k = 1; k < n; ++k)
            if ((static_cast<unsigned char>(s[i + k]) >> 6) != 2)
                return false;
        i += n;
    }
    return true;
}

TEST_P(PropertyListUncarriedString, ComesBackAsTheSameBytes) {
    const auto& [format, sample] = GetParam();
    const PropertyValue original(PropertyValue::Dictionary{{"value", sample.bytes}, {"plain", "é"}});
    const std::string bytes = propertyListData(original, format);
    if (format == PropertyListFormat::XML) {
        EXPECT_TRUE(validUtf8(bytes));
        EXPECT_EQ(bytes.find('\0'), std::string::npos);
    }
    PropertyValue back;
    CVError error;
    ASSERT_TRUE(readPropertyList(bytes, back, &error)) << error.localizedDescription();
    const auto* data = back["value"].asData();
    ASSERT_NE(data, nullptr) << back.description();
    EXPECT_EQ(std::string(data->begin(), data->end()), sample.bytes);
    EXPECT_EQ(back["plain"].toString(), "é");
}

INSTANTIATE_TEST_SUITE_P(Strings, PropertyListUncarriedString,
                         testing::Combine(testing::Values(PropertyListFormat::XML,
                                                          PropertyListFormat::Binary),
                                          testing::Values(UncarriedString{"Latin1", "caf\xE9"},
                                                          UncarriedString{"Truncated", "ab\xE2\x82"},
                                                          UncarriedString{"Overlong", "\xC0\xAF"},
                                                          UncarriedString{"Surrogate", "\xED\xA0\x80"},
                                                          UncarriedString{"Nul", std::string("a\0b", 3)},
                                                          UncarriedString{"Control", "bell\x07"})),
                         [](const auto& p) {
                             return std::string(std::get<0>(p.param) == PropertyListFormat::XML ? "XML"
                                                                                                : "Binary") +
                                    std::get<1>(p.param).name;
                         });

TEST(PropertyList, TextThatXmlNormalisesSurvivesARoundTrip) {
    const PropertyValue original(
        PropertyValue::Dictionary{{"text", "a\r\nb\tc <&> \"'\" ]]> d"}, {"k\r\x7f", "v"}});
    PropertyValue back;
    ASSERT_TRUE(readPropertyList(propertyListData(original, PropertyListFormat::XML), back, nullptr));
    EXPECT_TRUE(back == original) << back.description();
}

TEST(PropertyList, AKeyThatCannotBeWrittenFailsTheWriteAndKeepsTheFile) {
    test::TempTree tree;
    const std::string path = tree.file("settings.plist", "old");
    CVError error;
    EXPECT_FALSE(writePropertyListFile(path, PropertyValue::Dictionary{{"caf\xE9", 1}}, &error));
    EXPECT_FALSE(error.localizedDescription().empty());
    EXPECT_EQ(test::TempTree::read(path), "old");
}

// Values as other programs write them, outside what libplist's own date and integer
// handling keeps: they must come back exactly and be written with the same text.
struct ExactXmlValue {
    const char* name;
    std::string element; // as it appears in the file
    PropertyValue value;
};

class PropertyListExactValue : public testing::TestWithParam<ExactXmlValue> {};

TEST_P(PropertyListExactValue, IsReadExactlyAndWrittenBackUnchanged) {
    const std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
                            "\t<key>v</key>\n\t" +
                            GetParam().element + "\n</dict>\n</plist>\n";
    PropertyValue back;
    CVError error;
    ASSERT_TRUE(readPropertyList(xml, back, &error)) << error.localizedDescription();
    EXPECT_EQ(back["v"].type(), GetParam().value.type());
    EXPECT_TRUE(back["v"] == GetParam().value) << back["v"].description();
    EXPECT_EQ(back["v"].isUnsignedInteger(), GetParam().value.isUnsignedInteger());
    if (const auto date = back["v"].asDate()) {
        EXPECT_EQ(date->secondsSince1970, GetParam().value.asDate()->secondsSince1970);
    }
    const std::string written = propertyListData(back, PropertyListFormat::XML);
    EXPECT_NE(written.find("\t" + GetParam().element + "\n"), std::string::npos) << written;
}

INSTANTIATE_TEST_SUITE_P(
    Values, PropertyListExactValue,
    testing::Values(
        ExactXmlValue{"Date2100", "<date>2100-01-01T00:00:00Z</date>", PropertyDate{4102444800.0}},
        ExactXmlValue{"Date1800", "<date>1800-06-15T12:30:00Z</date>", PropertyDate{-5350361400.0}},
        ExactXmlValue{"Date1901", "<date>1901-12-13T20:45:51Z</date>", PropertyDate{-2147483649.0}},
        ExactXmlValue{"Date9999", "<date>9999-12-31T23:59:59Z</date>", PropertyDate{253402300799.0}},
        ExactXmlValue{"DateFraction", "<date>2020-05-17T10:11:12.5Z</date>", PropertyDate{1589710272.5}},
        ExactXmlValue{"DateBefore1970Fraction", "<date>1969-12-31T23:59:59.25Z</date>", PropertyDate{-0.75}},
        ExactXmlValue{"UnsignedMax", "<integer>18446744073709551615</integer>", PropertyValue(UINT64_MAX)},
        ExactXmlValue{"UnsignedAbove63", "<integer>9223372036854775808</integer>",
                      PropertyValue(std::uint64_t{1} << 63)},
        ExactXmlValue{"SignedMin", "<integer>-9223372036854775808</integer>",
                      PropertyValue(static_cast<long long>(INT64_MIN))},
        ExactXmlValue{"SignedMax", "<integer>9223372036854775807</integer>",
                      PropertyValue(static_cast<long long>(INT64_MAX))}),
    [](const auto& p) { return std::string(p.param.name); });

// A fraction too fine for a double may round a date up past the last second the text
// form can carry, or up to the next second: the date written stays the same instant as
// near as a double holds it, within years 1 to 9999, and reads back unchanged.
TEST(PropertyList, DatesAtTheLimitsOfTheTextFormStayWithinThem) {
    const struct {
        const char* element;
        const char* written;
    } cases[] = {
        {"<date>9999-12-31T23:59:59.999999999Z</date>", "<date>9999-12-31T23:59:59.99997Z</date>"},
        {"<date>2024-02-29T23:59:59.9999999999Z</date>", "<date>2024-03-01T00:00:00Z</date>"},
        {"<date>2024-02-29T23:59:59.99999Z</date>", "<date>2024-02-29T23:59:59.99999Z</date>"},
    };
    for (const auto& c : cases) {
        std::string text = R"(<?xml version="1.0"?><plist version="1.0"><dict><key>v</key>)" +
                           std::string(c.element) + "</dict></plist>";
        for (int round = 0; round < 2; ++round) {
            PropertyValue back;
            ASSERT_TRUE(readPropertyList(text, back, nullptr)) << c.element;
            text = propertyListData(back, PropertyListFormat::XML);
            EXPECT_NE(text.find(c.written), std::string::npos) << c.element << " round " << round << "\n"
                                                               << text;
        }
    }
}

// How other editors save a list: a UTF-8 file may begin with a byte-order mark (read as
// if it did not); a UTF-16 or UTF-32 one is refused with a message that says which.
TEST(PropertyList, AByteOrderMarkIsReadPastAndUtf16IsNamed) {
    const std::string xml = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict><key>k</key><string>café</string></dict></plist>
)";
    PropertyValue back;
    CVError error;
    ASSERT_TRUE(readPropertyList("\xEF\xBB\xBF" + xml, back, &error)) << error.localizedDescription();
    EXPECT_EQ(back["k"], PropertyValue("caf\u00e9"));
    std::string utf16 = "\xFF\xFE";
    for (const char c : xml) {
        utf16 += c;
        utf16 += '\0';
    }
    EXPECT_FALSE(readPropertyList(utf16, back, &error));
    EXPECT_NE(error.localizedDescription().find("UTF-16"), std::string::npos) << error.localizedDescription();
    EXPECT_FALSE(readPropertyList(std::string("\xFF\xFE\0\0<\0\0\0", 8), back, &error));
    EXPECT_NE(error.localizedDescription().find("UTF-32"), std::string::npos) << error.localizedDescription();
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

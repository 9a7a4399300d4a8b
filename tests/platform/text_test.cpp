#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "platform/text.h"

namespace corvel {
namespace {

// "é" composed (U+00E9) and decomposed (e + U+0301).
const std::string kComposed = "C\xC3\xB3pia de foto.jpg";    // Cópia, NFC
const std::string kDecomposed = "Co\xCC\x81pia de foto.jpg"; // Cópia, NFD

TEST(Text, NormalisationConvertsBetweenForms) {
    EXPECT_EQ(nfd(kComposed), kDecomposed);
    EXPECT_EQ(nfc(kDecomposed), kComposed);
    EXPECT_EQ(nfd(kDecomposed), kDecomposed);
    EXPECT_EQ(nfd("plain ascii"), "plain ascii");
}

TEST(Text, DecomposedCaseInsensitivePatternMatchesADecomposedName) {
    CVError error;
    // The copy word written decomposed and in another case than the name.
    const auto copyWord = RegularExpression::compile("^CO\xCC\x81PIA DE ", &error);
    ASSERT_TRUE(copyWord) << error.localizedDescription();
    EXPECT_TRUE(copyWord->search(nfd(kComposed)));
    EXPECT_TRUE(copyWord->search(kDecomposed));
    EXPECT_FALSE(copyWord->search(kComposed)) << "a composed name must be decomposed before matching";
    const auto caseSensitive = RegularExpression::compile("^co\xCC\x81pia", &error, RegularExpression::None);
    ASSERT_TRUE(caseSensitive);
    EXPECT_FALSE(caseSensitive->search(kDecomposed));
}

TEST(Text, RegularExpressionsReportMatchesInBytes) {
    CVError error;
    const auto re = RegularExpression::compile("[ ,-,_]+copy( \\d+)?$", &error);
    ASSERT_TRUE(re) << error.localizedDescription();
    // The class "[ ,-,_]" holds space, comma and underscore (",-," is a range of one), not '-'.
    const std::string name = "Fot\xC3\xB3 - Copy 2";
    const auto match = re->firstMatch(name);
    ASSERT_TRUE(match);
    EXPECT_EQ(match->first, 7u);
    EXPECT_EQ(name.substr(match->first, match->second), " Copy 2");
    EXPECT_TRUE(re->matchesWhole(", copy"));
    EXPECT_FALSE(re->matchesWhole("- copy"));
    EXPECT_EQ(re->replaceAll(name, ""), "Fot\xC3\xB3 -");
}

TEST(Text, BadPatternsAreErrorsThatSayWhatIsWrongAndWhere) {
    const struct {
        const char* pattern;
        const char* problem;
    } cases[] = {
        {"(unclosed", "the parentheses do not pair up"},
        {"a{2,1}", "a {min,max} repeat is not well formed"},
        {"[z-a]", "a range in [...] runs backwards"},
        {"*start", "a character is out of place"},
        {"a[b", "a [ is not closed"},
    };
    for (const auto& c : cases) {
        CVError error;
        EXPECT_FALSE(RegularExpression::compile(c.pattern, &error)) << c.pattern;
        const std::string text = error.localizedDescription();
        EXPECT_NE(text.find(std::string("\"") + c.pattern + "\": " + c.problem), std::string::npos) << text;
        EXPECT_NE(text.find("(at character "), std::string::npos) << text;
        EXPECT_EQ(text.find("U_REGEX"), std::string::npos) << text;
        EXPECT_TRUE(error.userInfo.count("offset"));
    }
}

TEST(Text, InvalidUtf8IsMatchedWithoutCrashing) {
    const auto re = RegularExpression::compile("copy", nullptr);
    ASSERT_TRUE(re);
    EXPECT_TRUE(re->search("bad\xFF\xFE name copy"));
    EXPECT_FALSE(nfd("bad\xFF").empty());
}

TEST(Text, CaseInsensitiveEqualityTreatsFormsAlike) {
    struct Case {
        std::string a, b;
        bool equal;
    };
    const Case cases[] = {
        {kComposed, kDecomposed, true},
        {"STRASSE", "strasse", true},
        {"Stra\xC3\x9F"
         "e",
         "STRASSE", true}, // ß folds to ss
        {"\xC3\x89t\xC3\xA9", "\xC3\xA9T\xC3\x89", true},
        {"cafe", "caf\xC3\xA9", false},
        {"a", "b", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(caseInsensitiveEqual(c.a, c.b), c.equal) << c.a << " / " << c.b;
    EXPECT_EQ(comparisonKey("Caf\xC3\xA9", true, true), "cafe");
}

TEST(Text, LocalisedOrderingIgnoresCase) {
    EXPECT_EQ(localizedCaseInsensitiveCompare("apple", "APPLE"), 0);
    EXPECT_LT(localizedCaseInsensitiveCompare("apple", "Banana"), 0);
    EXPECT_GT(localizedCaseInsensitiveCompare("zebra", "Apple"), 0);
    EXPECT_LT(localizedCaseInsensitiveCompare("\xC3\xA9"
                                              "a",
                                              "f"),
              0)
        << "é sorts with e, before f";
    EXPECT_EQ(lowercase("\xC3\x89T\xC3\x89"), "\xC3\xA9t\xC3\xA9");
}

TEST(Text, LocalizedSortKeysOrderAsTheLocalizedComparison) {
    const std::vector<std::string> texts{"apple",
                                         "APPLE",
                                         "Banana",
                                         "zebra",
                                         "\u00e9a",
                                         "f",
                                         "",
                                         "a10",
                                         "a9",
                                         "Zeta",
                                         "beta",
                                         "\xFF\xFE not UTF-8",
                                         std::string(200, 'x')};
    for (const auto& a : texts) {
        for (const auto& b : texts) {
            const int compared = localizedCaseInsensitiveCompare(a, b);
            const std::string ka = localizedSortKey(a);
            const std::string kb = localizedSortKey(b);
            const int byKeys = ka < kb ? -1 : (kb < ka ? 1 : 0);
            EXPECT_EQ(byKeys, compared) << a << " / " << b;
        }
    }
}

} // namespace
} // namespace corvel

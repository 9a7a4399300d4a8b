#include <gtest/gtest.h>

#include "platform/text.h"
#include "selection/smart_pattern.h"

namespace corvel {
namespace {

struct Case {
    std::string label;
    std::vector<std::string> paths;
    std::vector<std::string> copies;
};

void PrintTo(const Case& c, std::ostream* os) {
    *os << c.label;
}

class SmartPatterns : public testing::TestWithParam<Case> {};

TEST_P(SmartPatterns, ReportTheCopies) {
    EXPECT_EQ(CVSmartPattern(GetParam().paths).getDuplicatePathStrings(), GetParam().copies);
}

const std::string kCopiaNFC = "C\xC3\xB3pia de ";  // "Cópia de " composed
const std::string kCopiaNFD = "Co\xCC\x81pia de "; // the same, decomposed

INSTANTIATE_TEST_SUITE_P(
    Names, SmartPatterns,
    testing::Values(
        Case{"a copy word", {"/x/photo.jpg", "/x/photo copy.jpg"}, {"/x/photo copy.jpg"}},
        Case{"a copy word and a number",
             {"/x/photo copy.jpg", "/x/photo copy 2.jpg"},
             {"/x/photo copy 2.jpg"}},
        Case{"nothing alike", {"/x/a.jpg", "/x/b.jpg"}, {}},
        Case{"a number in brackets",
             {"/d/report.pdf", "/d/report (1).pdf", "/d/report (2).pdf"},
             {"/d/report (1).pdf", "/d/report (2).pdf"}},
        // The separator class holds blank, comma and underscore only: " - copie" strips to "Brief -".
        Case{"German and French words",
             {"/d/Brief.odt", "/d/Brief Kopie.odt", "/d/Brief - copie.odt"},
             {"/d/Brief - copie.odt", "/d/Brief Kopie.odt"}},
        Case{"a Russian word", {"/d/отчёт.txt", "/d/отчёт копия.txt"}, {"/d/отчёт копия.txt"}},
        Case{"a Japanese word after a separator",
             {"/d/写真.png", "/d/写真 のコピー.png"},
             {"/d/写真 のコピー.png"}},
        Case{"a Japanese word without a separator is not a mark", {"/d/写真.png", "/d/写真のコピー.png"}, {}},
        Case{"the Portuguese prefix, composed",
             {"/f/foto.jpg", "/f/" + kCopiaNFC + "foto.jpg"},
             {"/f/" + kCopiaNFC + "foto.jpg"}},
        Case{"the Portuguese prefix, decomposed",
             {"/f/foto.jpg", "/f/" + kCopiaNFD + "foto.jpg"},
             {"/f/" + kCopiaNFD + "foto.jpg"}},
        // The second mark's range is not shifted after the first is cut, so it is skipped.
        Case{"two copy marks count once", {"/p/a copy.txt", "/p/a copy copy.txt"}, {}},
        Case{"two copy marks against a plain name",
             {"/p/a.txt", "/p/a copy copy.txt"},
             {"/p/a copy copy.txt"}},
        Case{"copies in different folders compare at the folders",
             {"/a/x/p.jpg", "/a copy/x/p.jpg"},
             {"/a copy/x/p.jpg"}},
        Case{"an untitled folder one level up",
             {"/a/untitled folder/p.jpg", "/b/Pictures/p.jpg"},
             {"/a/untitled folder/p.jpg"}},
        Case{"an untitled folder deeper up",
             {"/a/New Folder With Items/2020/x/p.jpg", "/b/Trips/2020/y/p.jpg"},
             {"/a/New Folder With Items/2020/x/p.jpg"}},
        Case{"every copy untitled: none reported",
             {"/a/untitled folder/p.jpg", "/b/untitled folder 2/q.jpg"},
             {}},
        Case{"names that differ in case are not equal", {"/x/Photo.jpg", "/x/photo.jpg"}, {}},
        Case{"trailing numbers alone", {"/x/IMG_1.jpg", "/x/IMG_1 2.jpg"}, {"/x/IMG_1 2.jpg"}}));

// The names Linux file managers give copies, beside the cases the same rules must leave alone.
INSTANTIATE_TEST_SUITE_P(
    LinuxCopyNames, SmartPatterns,
    testing::Values(
        Case{"a copy in brackets", {"/d/name.txt", "/d/name (copy).txt"}, {"/d/name (copy).txt"}},
        Case{"copy, another copy and the third",
             {"/d/name (3rd copy).txt", "/d/name.txt", "/d/name (another copy).txt", "/d/name (copy).txt"},
             {"/d/name (copy).txt", "/d/name (another copy).txt", "/d/name (3rd copy).txt"}},
        Case{"any ordinal",
             {"/d/n.txt", "/d/n (21st copy).txt", "/d/n (4th copy).txt", "/d/n (22nd copy).txt",
              "/d/n (11th copy).txt", "/d/n (23rd copy).txt"},
             {"/d/n (4th copy).txt", "/d/n (11th copy).txt", "/d/n (21st copy).txt", "/d/n (22nd copy).txt",
              "/d/n (23rd copy).txt"}},
        Case{"numbered copies",
             {"/d/name.txt", "/d/name (copy 1).txt", "/d/name (copy 2).txt"},
             {"/d/name (copy 1).txt", "/d/name (copy 2).txt"}},
        Case{"a number in brackets", {"/d/name (2).txt", "/d/name.txt"}, {"/d/name (2).txt"}},
        Case{"copies of each other",
             {"/d/name (copy).txt", "/d/name (another copy).txt"},
             {"/d/name (another copy).txt"}},
        Case{"any case", {"/d/Name.TXT", "/d/Name (Copy).TXT"}, {"/d/Name (Copy).TXT"}},
        Case{"before a double extension", {"/d/a.tar.gz", "/d/a (copy).tar.gz"}, {"/d/a (copy).tar.gz"}},
        Case{"a copy word of another language in brackets",
             {"/d/Brief.odt", "/d/Brief (Kopie).odt"},
             {"/d/Brief (Kopie).odt"}},
        Case{"a copied folder", {"/a/Trip (copy)/p.jpg", "/a/Trip/p.jpg"}, {"/a/Trip (copy)/p.jpg"}},
        Case{"a copied untitled folder",
             {"/a/untitled folder (copy)/p.jpg", "/b/Pictures/q.jpg"},
             {"/a/untitled folder (copy)/p.jpg"}},
        // Not copy marks: in the middle of a name, without a blank, or not the words.
        Case{"copy in the middle of a name", {"/d/My (copy) notes.txt", "/d/My notes.txt"}, {}},
        Case{"no blank before the bracket", {"/d/name.txt", "/d/name(copy).txt"}, {}},
        Case{"a longer word", {"/d/name.txt", "/d/name (copyright).txt"}, {}},
        Case{"another alone", {"/d/name.txt", "/d/name (another).txt"}, {}},
        Case{"an ordinal alone", {"/d/name.txt", "/d/name (3rd).txt"}, {}},
        Case{"an ordinal without a number: the copy word after a blank still counts",
             {"/d/name.txt", "/d/name (th copy).txt"},
             {"/d/name (th copy).txt"}},
        // The existing rules decide words that merely begin with the copy word.
        Case{"Copyright with a number",
             {"/d/Copyright.txt", "/d/Copyright (2).txt"},
             {"/d/Copyright (2).txt"}},
        Case{"Copyright against Copy", {"/d/Copyright.txt", "/d/Copy.txt"}, {}},
        Case{"Copyright copied",
             {"/d/Copyright.txt", "/d/Copyright (copy).txt"},
             {"/d/Copyright (copy).txt"}}));

TEST(PatternedString, StrippingCountsTheMarks) {
    struct Strip {
        std::string path;
        std::string left;
        std::uint64_t rate;
    };
    for (const Strip& s :
         {Strip{"/x/photo copy 2.jpg", "photo", 3}, Strip{"/x/photo (12).jpg", "photo", 12},
          Strip{"/x/photo 1 2.jpg", "photo", 12}, Strip{"/x/" + kCopiaNFC + "foto.jpg", "foto", 1},
          Strip{"/x/Copy of photo.jpg", "of photo", 1}, Strip{"/x/a copy copy.txt", "a copy", 1},
          Strip{"/x/plain", "plain", 0}, Strip{"/x/a 99999999999999999999999.txt", "a", UINT64_MAX},
          Strip{"/x/name (copy).txt", "name", 1}, Strip{"/x/name (another copy).txt", "name", 2},
          Strip{"/x/name (3rd copy).txt", "name", 3}, Strip{"/x/name (112th copy).txt", "name", 112},
          Strip{"/x/name (copy 2).txt", "name", 3}, Strip{"/x/name (copy) (copy).txt", "name", 2},
          Strip{"/x/name (2).txt", "name", 2}, Strip{"/x/a (copy).tar.gz", "a.tar", 1},
          Strip{"/x/name (99999999999999999999999th copy).txt", "name", UINT64_MAX},
          Strip{"/x/My (copy) notes.txt", "My (copy) notes", 0}}) {
        CVPatternedString patterned(s.path);
        patterned.removePrefixCopyPattern();
        patterned.removeSufixCopyPattern();
        ASSERT_TRUE(patterned.currentPathComponent());
        EXPECT_EQ(*patterned.currentPathComponent(), nfd(s.left)) << s.path;
        EXPECT_EQ(patterned.patternsRate(), s.rate) << s.path;
        EXPECT_EQ(patterned.mainString(), s.path) << "the path itself is never changed";
    }
}

TEST(PatternedString, WalksFromTheNameToTheRoot) {
    CVPatternedString patterned("/a/b.dir/c.jpg");
    std::vector<std::string> seen;
    for (; patterned.currentPathComponent(); patterned.moveToNextPathComponent())
        seen.push_back(*patterned.currentPathComponent());
    EXPECT_EQ(seen, (std::vector<std::string>{"c", "b", "a", "/"}));
    patterned.resetCurrentPathComponent();
    EXPECT_EQ(*patterned.currentPathComponent(), "c");
}

} // namespace
} // namespace corvel

#include <gtest/gtest.h>

#include "report.h"
#include "scan/files_hierarchy.h"
#include "scan/unread_files.h"

namespace corvel::cli {
namespace {

struct Escape {
    std::string text;
    std::string shown;
};

void PrintTo(const Escape& e, std::ostream* os) {
    *os << '"' << e.shown << '"';
}

class TerminalText : public testing::TestWithParam<Escape> {};

// What reaches the terminal has no control byte and no broken UTF-8, and a backslash is
// doubled so that "\n" shown is always a line feed in the name, never the two characters.
TEST_P(TerminalText, ShowsControlBytesAsEscapes) {
    EXPECT_EQ(escapedForTerminal(GetParam().text), GetParam().shown);
}

INSTANTIATE_TEST_SUITE_P(
    Names, TerminalText,
    testing::Values(Escape{"", ""}, Escape{"/home/ada/plain name.txt", "/home/ada/plain name.txt"},
                    Escape{"two\nlines", R"(two\nlines)"}, Escape{"tab\there", R"(tab\there)"},
                    Escape{"cr\r", R"(cr\r)"}, Escape{"\x1b[31mred", R"(\x1b[31mred)"},
                    Escape{std::string("nul\0byte", 8), R"(nul\x00byte)"}, Escape{"del\x7f", R"(del\x7f)"},
                    Escape{"\x01\x1f", R"(\x01\x1f)"}, Escape{R"(back\slash)", R"(back\\slash)"},
                    Escape{R"(looks\nescaped)", R"(looks\\nescaped)"},
                    Escape{"caf\xC3\xA9 \xE2\x82\xAC", "caf\xC3\xA9 \xE2\x82\xAC"},
                    // C1 controls: U+009B is a control sequence introducer to some terminals
                    Escape{"\xC2\x9B"
                           "31m",
                           R"(\xc2\x9b31m)"},
                    Escape{"\xC2\xA0nbsp", "\xC2\xA0nbsp"},
                    // Bytes that make no UTF-8 character are shown by value, each on its own
                    Escape{"bad \xFF byte", R"(bad \xff byte)"}, Escape{"caf\xE9", R"(caf\xe9)"},
                    Escape{"cut \xE2\x82", R"(cut \xe2\x82)"}, Escape{"\xC0\xAF", R"(\xc0\xaf)"},
                    Escape{"\xED\xA0\x80", R"(\xed\xa0\x80)"},
                    Escape{"\xE9\xC3\xA9", R"(\xe9)"
                                           "\xC3\xA9"},
                    Escape{"smile \xF0\x9F\x98\x80", "smile \xF0\x9F\x98\x80"}));

struct UnreadCase {
    std::size_t folders;
    std::size_t namedFiles;
    std::uint64_t files; // named or only counted
    std::size_t folderLines;
    std::size_t fileLines;
    std::uint64_t more; // 0: no closing line
};

void PrintTo(const UnreadCase& c, std::ostream* os) {
    *os << c.folders << " folders, " << c.files << " files (" << c.namedFiles << " named)";
}

class UnreadText : public testing::TestWithParam<UnreadCase> {};

// The walk's folders come first, then the files, under one cap of 20 lines; the closing
// line counts what is left of both, the files kept only as a count included.
TEST_P(UnreadText, NamesFoldersThenFilesUnderOneCap) {
    const UnreadCase& c = GetParam();
    std::vector<IncompleteFolder> folders;
    for (std::size_t i = 0; i < c.folders; ++i)
        folders.push_back({"/d/folder" + std::to_string(i), "Permission denied", false, {}});
    std::vector<UnreadFile> files;
    for (std::size_t i = 0; i < c.namedFiles; ++i)
        files.push_back({"/d/file" + std::to_string(i), "Input/output error"});
    std::string expected;
    for (std::size_t i = 0; i < c.folderLines; ++i)
        expected += "corvel: cannot read /d/folder" + std::to_string(i) + ": Permission denied\n";
    for (std::size_t i = 0; i < c.fileLines; ++i)
        expected += "corvel: cannot read /d/file" + std::to_string(i) + ": Input/output error\n";
    if (c.more > 0)
        expected += "corvel: and " + std::to_string(c.more) + " more could not be read\n";
    EXPECT_EQ(unreadReport(folders, files, c.files), expected);
}

// A folder listed but with an entry that could not be looked at is named by that entry:
// the folder itself was read.
TEST(UnreadText, NamesTheEntryOfAFolderThatWasListed) {
    const std::vector<IncompleteFolder> folders = {
        {"/d/unlisted", "Permission denied", true, {}},
        {"/d/listed", "No such file or directory", false, "/d/listed/gone"}};
    EXPECT_EQ(unreadReport(folders, {}, 0),
              "corvel: cannot read /d/unlisted: Permission denied\n"
              "corvel: cannot read /d/listed/gone: No such file or directory\n");
}

INSTANTIATE_TEST_SUITE_P(Counts, UnreadText,
                         testing::Values(UnreadCase{0, 0, 0, 0, 0, 0}, UnreadCase{2, 0, 0, 2, 0, 0},
                                         UnreadCase{0, 3, 3, 0, 3, 0}, UnreadCase{15, 10, 10, 15, 5, 5},
                                         UnreadCase{10, 10, 10, 10, 10, 0}, UnreadCase{10, 11, 11, 10, 10, 1},
                                         UnreadCase{25, 4, 4, 20, 0, 9}, UnreadCase{0, 300, 1000, 0, 20, 980},
                                         UnreadCase{5, 2, 40, 5, 2, 38}));

// A name is escaped for the terminal like every other path the command prints.
TEST(UnreadText, EscapesTheNames) {
    EXPECT_EQ(unreadReport({}, {{"/d/two\nlines", "Permission denied"}}, 1),
              "corvel: cannot read /d/two\\nlines: Permission denied\n");
}

} // namespace
} // namespace corvel::cli

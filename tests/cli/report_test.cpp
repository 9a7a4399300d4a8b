#include <gtest/gtest.h>

#include "report.h"

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

// What reaches the terminal has no control byte, and a backslash is doubled so that
// "\n" shown is always a line feed in the name, never the two characters.
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
                    Escape{"\xC2\xA0nbsp", "\xC2\xA0nbsp"}, Escape{"bad \xFF byte", "bad \xFF byte"}));

} // namespace
} // namespace corvel::cli

// The progress line's text, and the line itself drawn on a pseudo-terminal only.

#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>

#include "cli/corvel_runner.h"
#include "progress_line.h"
#include "support/temp_tree.h"

namespace corvel::cli {
namespace {

using namespace std::chrono_literals;

TEST(ProgressLine, SaysTheStageAndItsFigures) {
    struct Case {
        ProgressFigures figures;
        std::string text;
    };
    for (const Case& c : {
             Case{{ScanCounters::Walking, 1, 1, 0, 0, 0, 0, std::nullopt}, "Walking: 1 folder, 1 file"},
             Case{{ScanCounters::Walking, 1234, 1234567, 0, 0, 0, 0, std::nullopt},
                  "Walking: 1,234 folders, 1,234,567 files"},
             Case{{ScanCounters::Comparing, 9, 99, 500, 120, 1200000, 24.6, 12s},
                  "Comparing: 120 of 500 sizes, 1.2 MB read, 24%, about 0:12 left"},
             Case{{ScanCounters::Comparing, 9, 99, 1, 1, 0, 140, std::nullopt},
                  "Comparing: 1 of 1 size, Zero KB read, 100%"},
             Case{{ScanCounters::Comparing, 9, 99, 10, 12, 0, 50, 3725s},
                  "Comparing: 10 of 10 sizes, Zero KB read, 50%, about 1:02:05 left"},
             Case{{ScanCounters::Idle, 9, 99, 10, 12, 0, 50, std::nullopt}, ""},
         })
        EXPECT_EQ(progressLineText(c.figures), c.text);
}

TEST(ProgressLine, TellsTheTimeLeftOnlyWhenItCanGuess) {
    EXPECT_EQ(timeLeft(50, 10s), 10s);
    EXPECT_EQ(timeLeft(25, 3s), 9s);
    EXPECT_EQ(timeLeft(1.5, 10s), std::nullopt) << "too early in the work";
    EXPECT_EQ(timeLeft(50, 500ms), std::nullopt) << "too early in time";
    EXPECT_EQ(timeLeft(100, 10s), std::nullopt);
}

// script(1) gives corvel a pseudo-terminal as stderr; the line is drawn there and
// nowhere else.
TEST(ProgressLine, IsDrawnOnATerminalOnly) {
    if (std::system("command -v script >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "script(1) from util-linux is needed for a pseudo-terminal";
    test::TempTree home;
    test::TempTree tree;
    for (int i = 0; i < 40; ++i)
        for (const char* side : {"a", "b"})
            tree.file(std::string(side) + "/" + std::to_string(i) + ".bin", std::string(1000 + i, 'p'));
    tree.file("a/own", "apart");
    const std::string scan =
        "scan --min-size 1 --settings '" + (home / "s.plist") + "' '" + tree.path() + "'";
    const std::string typescript = home / "typescript";
    const std::string command = "script -qec \"" + std::string(CORVEL_BINARY) + " " + scan +
                                " >/dev/null\" '" + typescript + "' >/dev/null 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0);
    const std::string drawn = test::TempTree::read(typescript);
    EXPECT_NE(drawn.find("\rComparing: 40 of 40 sizes, "), std::string::npos) << drawn;
    EXPECT_NE(drawn.find("100%\033[K"), std::string::npos) << drawn;
    EXPECT_NE(drawn.find("\r\033[K"), std::string::npos) << "the line is cleared at the end";
    const auto plain = test::runCorvel(scan, home);
    EXPECT_EQ(plain.err.find("Comparing"), std::string::npos) << plain.err;
    EXPECT_EQ(test::runCorvel(scan + " --quiet", home).err.find("Comparing"), std::string::npos);
}

} // namespace
} // namespace corvel::cli

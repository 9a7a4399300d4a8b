// Globs of --exclude as ignore patterns: what each matches in a lower-cased path.

#include <gtest/gtest.h>

#include "platform/text.h"
#include "run_overrides.h"

namespace corvel::cli {
namespace {

struct GlobCase {
    const char* glob;
    const char* path;
    bool matches;
};

class GlobPattern : public testing::TestWithParam<GlobCase> {};

TEST_P(GlobPattern, MatchesAsTheShellWould) {
    const GlobCase& c = GetParam();
    const std::string pattern = globToIgnorePattern(c.glob);
    const auto compiled = RegularExpression::compile(pattern, nullptr);
    ASSERT_TRUE(compiled) << pattern;
    // The ignore list searches the lower-cased path.
    std::string path = c.path;
    for (char& ch : path)
        ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    EXPECT_EQ(compiled->search(path), c.matches) << c.glob << " on " << c.path << " as " << pattern;
}

INSTANTIATE_TEST_SUITE_P(
    Globs, GlobPattern,
    testing::Values(GlobCase{"node_modules", "/p/node_modules", true},
                    GlobCase{"node_modules", "/p/my_node_modules", false},
                    GlobCase{"node_modules", "/p/node_modules.txt", false},
                    GlobCase{"*.bin", "/p/a.bin", true}, GlobCase{"*.bin", "/p/a.bin/x", false},
                    GlobCase{"*.BIN", "/p/A.bin", true}, // case as the ignore pattern: insensitive
                    GlobCase{"*.bin", "/p/abin", false}, GlobCase{"?.txt", "/p/a.txt", true},
                    GlobCase{"?.txt", "/p/ab.txt", false}, GlobCase{"*", "/p/x/y", true},
                    GlobCase{"a+b(1).txt", "/p/a+b(1).txt", true},
                    GlobCase{"a+b(1).txt", "/p/aab1.txt", false}, GlobCase{"[ab].txt", "/p/b.txt", true},
                    GlobCase{"[!ab].txt", "/p/b.txt", false}, GlobCase{"[!ab].txt", "/p/c.txt", true},
                    GlobCase{"[", "/p/[", true}, GlobCase{"/p/cache", "/p/cache", true},
                    GlobCase{"/p/cache", "/q/p/cache", false}, GlobCase{"p/cache", "/q/p/cache", true},
                    GlobCase{"/p/*/tmp", "/p/x/tmp", true}, GlobCase{"/p/*/tmp", "/p/x/y/tmp", false},
                    GlobCase{"/p/**/tmp", "/p/x/y/tmp", true}, GlobCase{"$HOME", "/p/$home", true},
                    GlobCase{"a|b", "/p/a", false}));

} // namespace
} // namespace corvel::cli

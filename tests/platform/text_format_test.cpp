#include <gtest/gtest.h>

#include "platform/text_format.h"

namespace corvel {
namespace {

struct Case {
    std::string format;
    std::vector<PropertyValue> args;
    std::string expected;
};

void PrintTo(const Case& c, std::ostream* os) {
    *os << c.format;
}

class FormatString : public testing::TestWithParam<Case> {};

TEST_P(FormatString, Formats) {
    EXPECT_EQ(formatString(GetParam().format, GetParam().args), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Specifiers, FormatString,
    testing::Values(
        Case{"Nothing to scan in %@", {"/home/ada"}, "Nothing to scan in /home/ada"},
        Case{"Total groups count = %lu. Useful groups count = %lu",
             {12u, 3u},
             "Total groups count = 12. Useful groups count = 3"},
        Case{"Removing finished. Complete remove = %i. Removed Count = %lu Size = %llu",
             {1, 2u, static_cast<unsigned long long>(UINT64_MAX)},
             "Removing finished. Complete remove = 1. Removed Count = 2 Size = 18446744073709551615"},
        Case{"%d %ld %lld", {-1, -2, -3}, "-1 -2 -3"}, Case{"OS=%3.2f", {10.5}, "OS=10.50"},
        Case{"[%5.1f]", {3.14159}, "[  3.1]"}, Case{"%c%c", {65, "Bee"}, "AB"},
        Case{"%s and %@", {"one", 2}, "one and 2"},
        Case{"%2$@ before %1$@", {"first", "second"}, "second before first"},
        Case{"%1$@ %1$@", {"twice"}, "twice twice"}, Case{"100%%", {}, "100%"},
        Case{"%@ missing", {}, " missing"}, Case{"bad %y spec %@", {"x"}, "bad %y spec x"},
        Case{"%@", {PropertyValue::Array{1, "a"}}, "(1, \"a\")"}, Case{"%x", {255}, "ff"},
        Case{"trailing %", {}, "trailing %"}, Case{"%@", {true}, "1"}));

} // namespace
} // namespace corvel

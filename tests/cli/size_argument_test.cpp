#include <gtest/gtest.h>

#include "size_argument.h"

namespace corvel::cli {
namespace {

TEST(SizeArgument, ReadsWholeBytesWithTheShownSuffixes) {
    const struct {
        const char* text;
        std::optional<std::uint64_t> bytes;
    } cases[] = {
        {"0", 0},
        {"500000", 500000},
        {"500k", 500000},
        {"500 kB", 500000},
        {"10M", 10000000},
        {"10mb", 10000000},
        {"1GiB", 1073741824},
        {"1gib", 1073741824},
        {"2T", 2000000000000},
        {"1PiB", 1125899906842624},
        {"3B", 3},
        {"18446744073709551615", UINT64_MAX},
        {"18446744073709551616", std::nullopt},
        {"20000000T", std::nullopt}, // more than 64 bits
        {"1.5", std::nullopt},
        {"1.5M", std::nullopt},
        {"-5", std::nullopt},
        {"+5", std::nullopt},
        {"", std::nullopt},
        {"k", std::nullopt},
        {"lots", std::nullopt},
        {"5e", std::nullopt},
        {"5 KiBs", std::nullopt},
    };
    for (const auto& c : cases)
        EXPECT_EQ(parseByteSize(c.text), c.bytes) << c.text;
}

} // namespace
} // namespace corvel::cli

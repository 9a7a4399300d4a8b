#include "size_argument.h"

#include <array>
#include <charconv>
#include <limits>
#include <string>

#include "platform/text.h"

namespace corvel::cli {

namespace {

struct Suffix {
    std::string_view name; // lower case
    std::uint64_t unit;
};

// Powers of 1000 and of 1024.
constexpr std::uint64_t power(std::uint64_t base, unsigned exponent) {
    std::uint64_t value = 1;
    for (unsigned i = 0; i < exponent; ++i)
        value *= base;
    return value;
}

constexpr std::array<Suffix, 17> kSuffixes{{
    {"", 1},
    {"b", 1},
    {"k", power(1000, 1)},
    {"kb", power(1000, 1)},
    {"m", power(1000, 2)},
    {"mb", power(1000, 2)},
    {"g", power(1000, 3)},
    {"gb", power(1000, 3)},
    {"t", power(1000, 4)},
    {"tb", power(1000, 4)},
    {"p", power(1000, 5)},
    {"pb", power(1000, 5)},
    {"kib", power(1024, 1)},
    {"mib", power(1024, 2)},
    {"gib", power(1024, 3)},
    {"tib", power(1024, 4)},
    {"pib", power(1024, 5)},
}};

} // namespace

std::optional<std::uint64_t> parseByteSize(std::string_view text) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end == text.data())
        return std::nullopt;
    std::string suffix = asciiLowercase(text.substr(static_cast<std::size_t>(end - text.data())));
    std::erase(suffix, ' ');
    for (const Suffix& known : kSuffixes)
        if (known.name == suffix) {
            if (number > std::numeric_limits<std::uint64_t>::max() / known.unit)
                return std::nullopt;
            return number * known.unit;
        }
    return std::nullopt;
}

} // namespace corvel::cli

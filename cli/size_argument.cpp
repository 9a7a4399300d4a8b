#include "size_argument.h"

#include <array>
#include <cctype>
#include <charconv>
#include <limits>
#include <string>

namespace corvel::cli {

namespace {

struct Suffix {
    std::string_view name; // lower case
    std::uint64_t unit;
};

constexpr std::uint64_t kKilo = 1000;
constexpr std::uint64_t kKibi = 1024;

constexpr std::array<Suffix, 16> kSuffixes{{
    {"", 1},
    {"b", 1},
    {"k", kKilo},
    {"kb", kKilo},
    {"m", kKilo* kKilo},
    {"mb", kKilo* kKilo},
    {"g", kKilo* kKilo* kKilo},
    {"gb", kKilo* kKilo* kKilo},
    {"t", kKilo* kKilo* kKilo* kKilo},
    {"tb", kKilo* kKilo* kKilo* kKilo},
    {"p", kKilo* kKilo* kKilo* kKilo* kKilo},
    {"pb", kKilo* kKilo* kKilo* kKilo* kKilo},
    {"kib", kKibi},
    {"mib", kKibi* kKibi},
    {"gib", kKibi* kKibi* kKibi},
    {"tib", kKibi* kKibi* kKibi* kKibi},
}};

} // namespace

std::optional<std::uint64_t> parseByteSize(std::string_view text) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end == text.data())
        return std::nullopt;
    std::string suffix;
    for (const char* c = end; c != text.data() + text.size(); ++c)
        if (*c != ' ')
            suffix += static_cast<char>(std::tolower(static_cast<unsigned char>(*c)));
    for (const Suffix& known : kSuffixes)
        if (known.name == suffix) {
            if (number > std::numeric_limits<std::uint64_t>::max() / known.unit)
                return std::nullopt;
            return number * known.unit;
        }
    return std::nullopt;
}

} // namespace corvel::cli

#pragma once
// The sizes the command line takes (--min-size, --max-size): a whole number of bytes with
// an optional suffix, as the sizes corvel shows use powers of 1000.

#include <cstdint>
#include <optional>
#include <string_view>

namespace corvel::cli {

// Reads "500000", "500k", "10M", "1GiB", "2 TB" (suffixes in any case; k, M, G, T, P with
// an optional B are powers of 1000, KiB … PiB powers of 1024; a lone B is bytes).
// Nothing for anything else: fractions, signs, unknown suffixes, or more than 64 bits.
std::optional<std::uint64_t> parseByteSize(std::string_view text);

} // namespace corvel::cli

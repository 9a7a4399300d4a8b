#pragma once
// Text services on ICU: regular expressions with case-insensitive Unicode matching,
// canonical (de)composition, case-insensitive comparison and localised ordering.
// Text is UTF-8 throughout; invalid bytes are read as U+FFFD and never crash.

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unicode/uversion.h>
#include <utility>
#include <vector>

#include "error.h"

U_NAMESPACE_BEGIN
class RegexPattern;
U_NAMESPACE_END

namespace corvel {

class RegularExpression {
public:
    enum Options : unsigned { None = 0, CaseInsensitive = 1 };

    // Compiles an ICU pattern (case-insensitive and Unicode-aware by default). A bad
    // pattern answers nothing and fills *error with ICU's reason and the offset.
    static std::optional<RegularExpression> compile(std::string_view pattern, CVError* error,
                                                    unsigned options = CaseInsensitive);

    // True when the pattern matches somewhere in the text.
    bool search(std::string_view text) const;
    // True when the pattern matches the whole text.
    bool matchesWhole(std::string_view text) const;
    // Byte offset and length of the first match in the text.
    std::optional<std::pair<std::size_t, std::size_t>> firstMatch(std::string_view text) const;
    // Byte offset and length of every match, in order, as a search from the start finds them.
    std::vector<std::pair<std::size_t, std::size_t>> allMatches(std::string_view text) const;
    // The text with every match replaced ($1 names a capture group).
    std::string replaceAll(std::string_view text, std::string_view replacement) const;

    const std::string& pattern() const { return m_pattern; }

private:
    RegularExpression(std::string pattern, std::shared_ptr<const icu::RegexPattern> compiled)
        : m_pattern(std::move(pattern)), m_compiled(std::move(compiled)) {}
    std::string m_pattern;
    // Immutable once compiled, so copies and threads share it.
    std::shared_ptr<const icu::RegexPattern> m_compiled;
};

// Canonical decomposition (NFD) and composition (NFC).
std::string nfd(std::string_view text);
std::string nfc(std::string_view text);

// A key for comparing text: NFD, case folded, and with diacritics stripped when asked.
// Two texts compare equal case-insensitively exactly when their keys are equal.
std::string comparisonKey(std::string_view text, bool ignoreCase, bool ignoreDiacritics = false);

// Equality ignoring case, with composed and decomposed forms equal.
bool caseInsensitiveEqual(std::string_view a, std::string_view b);
// Ordering as the user's locale sorts, ignoring case: negative, 0 or positive.
int localizedCaseInsensitiveCompare(std::string_view a, std::string_view b);
// A key whose bytewise order is the order of localizedCaseInsensitiveCompare, for sorting
// many texts without comparing each pair through the collator.
std::string localizedSortKey(std::string_view text);

// The text with ASCII capitals made small; other bytes as they are.
std::string asciiLowercase(std::string_view text);

// Lower-case form of the text (full Unicode case mapping, root locale).
std::string lowercase(std::string_view text);

} // namespace corvel

#include "text.h"

#include <array>
#include <unicode/coll.h>
#include <unicode/normalizer2.h>
#include <unicode/regex.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utext.h>

namespace corvel {

namespace {

icu::UnicodeString fromUtf8(std::string_view text) {
    return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
}

std::string toUtf8(const icu::UnicodeString& text) {
    std::string out;
    text.toUTF8String(out);
    return out;
}

const icu::Normalizer2* nfdNormalizer() {
    UErrorCode status = U_ZERO_ERROR;
    return icu::Normalizer2::getNFDInstance(status);
}

icu::UnicodeString decomposed(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString out = nfdNormalizer()->normalize(fromUtf8(text), status);
    return U_SUCCESS(status) ? out : fromUtf8(text);
}

struct UTextCloser {
    void operator()(UText* t) const { utext_close(t); }
};

// Matchers are costly to make, so each thread keeps the last few it used, with the
// UTF-8 text wrapper they read through. Entries hold their pattern, which therefore
// outlives them.
class MatcherCache {
public:
    icu::RegexMatcher* matcherFor(const std::shared_ptr<const icu::RegexPattern>& pattern,
                                  std::string_view text) {
        Entry* entry = nullptr;
        for (auto& e : m_entries)
            if (e.pattern == pattern)
                entry = &e;
        UErrorCode status = U_ZERO_ERROR;
        if (!entry) {
            entry = &m_entries[m_next];
            m_next = (m_next + 1) % m_entries.size();
            entry->matcher.reset(pattern->matcher(status));
            entry->pattern = U_SUCCESS(status) && entry->matcher ? pattern : nullptr;
            if (!entry->pattern)
                return nullptr;
        }
        entry->text.reset(
            utext_openUTF8(entry->text.release(), text.data(), static_cast<int64_t>(text.size()), &status));
        if (U_FAILURE(status))
            return nullptr;
        entry->matcher->reset(entry->text.get());
        return entry->matcher.get();
    }

private:
    struct Entry {
        std::shared_ptr<const icu::RegexPattern> pattern;
        std::unique_ptr<icu::RegexMatcher> matcher;
        std::unique_ptr<UText, UTextCloser> text;
    };
    std::array<Entry, 4> m_entries;
    std::size_t m_next = 0;
};

// Runs fn with a matcher reset to the UTF-8 text (null when ICU failed); native
// indexes are byte offsets. fn must not search with another expression.
template <typename Fn>
auto withMatcher(const std::shared_ptr<const icu::RegexPattern>& pattern, std::string_view text, Fn fn) {
    thread_local MatcherCache cache;
    return fn(cache.matcherFor(pattern, text));
}

// What is wrong with a pattern, in words; the library's code name for the rare others.
std::string regexProblem(UErrorCode status) {
    switch (status) {
    case U_REGEX_MISSING_CLOSE_BRACKET:
        return "a [ is not closed";
    case U_REGEX_MISMATCHED_PAREN:
        return "the parentheses do not pair up";
    case U_REGEX_RULE_SYNTAX:
        return "a character is out of place (a repeat such as * or + with nothing before it?)";
    case U_REGEX_BAD_ESCAPE_SEQUENCE:
        return "an unknown escape after a backslash";
    case U_REGEX_BAD_INTERVAL:
    case U_REGEX_MAX_LT_MIN:
        return "a {min,max} repeat is not well formed";
    case U_REGEX_INVALID_RANGE:
        return "a range in [...] runs backwards";
    case U_REGEX_PROPERTY_SYNTAX:
        return "a \\p{...} property is not well formed";
    case U_REGEX_INVALID_FLAG:
        return "an unknown flag in (?...)";
    case U_REGEX_LOOK_BEHIND_LIMIT:
        return "a look-behind has no bounded length";
    default:
        return u_errorName(status);
    }
}

} // namespace

std::optional<RegularExpression> RegularExpression::compile(std::string_view pattern, CVError* error,
                                                            unsigned options) {
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError{};
    const uint32_t flags = (options & CaseInsensitive) ? UREGEX_CASE_INSENSITIVE : 0;
    std::shared_ptr<const icu::RegexPattern> compiled(
        icu::RegexPattern::compile(fromUtf8(pattern), flags, parseError, status));
    if (U_FAILURE(status) || !compiled) {
        CVError e("com.halvik.Corvel.RegularExpressionError", status,
                  "Invalid regular expression \"" + std::string(pattern) + "\": " + regexProblem(status) +
                      " (at character " + std::to_string(parseError.offset + 1) + ")");
        e.userInfo["offset"] = parseError.offset;
        setError(error, std::move(e));
        return std::nullopt;
    }
    return RegularExpression(std::string(pattern), std::move(compiled));
}

bool RegularExpression::search(std::string_view text) const {
    return withMatcher(m_compiled, text, [](icu::RegexMatcher* m) {
        UErrorCode status = U_ZERO_ERROR;
        return m && m->find(0, status) && U_SUCCESS(status);
    });
}

bool RegularExpression::matchesWhole(std::string_view text) const {
    return withMatcher(m_compiled, text, [](icu::RegexMatcher* m) {
        UErrorCode status = U_ZERO_ERROR;
        return m && m->matches(status) && U_SUCCESS(status);
    });
}

std::optional<std::pair<std::size_t, std::size_t>>
RegularExpression::firstMatch(std::string_view text) const {
    return withMatcher(
        m_compiled, text, [](icu::RegexMatcher* m) -> std::optional<std::pair<std::size_t, std::size_t>> {
            UErrorCode status = U_ZERO_ERROR;
            if (!m || !m->find(0, status) || U_FAILURE(status))
                return std::nullopt;
            const int64_t start = m->start64(status);
            const int64_t end = m->end64(status);
            if (U_FAILURE(status))
                return std::nullopt;
            return std::make_pair(static_cast<std::size_t>(start), static_cast<std::size_t>(end - start));
        });
}

std::vector<std::pair<std::size_t, std::size_t>> RegularExpression::allMatches(std::string_view text) const {
    return withMatcher(m_compiled, text, [](icu::RegexMatcher* m) {
        std::vector<std::pair<std::size_t, std::size_t>> found;
        UErrorCode status = U_ZERO_ERROR;
        while (m && m->find(status) && U_SUCCESS(status)) {
            const int64_t start = m->start64(status);
            const int64_t end = m->end64(status);
            if (U_FAILURE(status))
                break;
            found.emplace_back(static_cast<std::size_t>(start), static_cast<std::size_t>(end - start));
        }
        return found;
    });
}

std::string RegularExpression::replaceAll(std::string_view text, std::string_view replacement) const {
    UErrorCode status = U_ZERO_ERROR;
    // The matcher keeps a reference to its input, which must outlive it.
    const icu::UnicodeString input = fromUtf8(text);
    std::unique_ptr<icu::RegexMatcher> matcher(m_compiled->matcher(input, status));
    if (U_FAILURE(status))
        return std::string(text);
    const icu::UnicodeString result = matcher->replaceAll(fromUtf8(replacement), status);
    return U_SUCCESS(status) ? toUtf8(result) : std::string(text);
}

std::string nfd(std::string_view text) {
    return toUtf8(decomposed(text));
}

std::string nfc(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* normalizer = icu::Normalizer2::getNFCInstance(status);
    if (U_FAILURE(status))
        return std::string(text);
    icu::UnicodeString out = normalizer->normalize(fromUtf8(text), status);
    return U_SUCCESS(status) ? toUtf8(out) : std::string(text);
}

std::string comparisonKey(std::string_view text, bool ignoreCase, bool ignoreDiacritics) {
    icu::UnicodeString s = decomposed(text);
    if (ignoreCase) {
        s.foldCase(U_FOLD_CASE_DEFAULT);
        // Folding can produce composable sequences again (e.g. from U+0130); keep NFD.
        UErrorCode status = U_ZERO_ERROR;
        icu::UnicodeString again = nfdNormalizer()->normalize(s, status);
        if (U_SUCCESS(status))
            s = again;
    }
    if (ignoreDiacritics) {
        icu::UnicodeString stripped;
        for (int32_t i = 0; i < s.length();) {
            const UChar32 c = s.char32At(i);
            if (u_charType(c) != U_NON_SPACING_MARK)
                stripped.append(c);
            i += U16_LENGTH(c);
        }
        s = stripped;
    }
    return toUtf8(s);
}

bool caseInsensitiveEqual(std::string_view a, std::string_view b) {
    return comparisonKey(a, true) == comparisonKey(b, true);
}

namespace {

// The collator of the user's locale at secondary strength (case ignored), one per thread:
// collators are not shared between threads. Null when ICU has none.
icu::Collator* localizedCollator() {
    thread_local std::unique_ptr<icu::Collator> collator = [] {
        UErrorCode status = U_ZERO_ERROR;
        // The POSIX locale's collation orders by code point, case first; the root
        // collation is what a user of the C locale expects from a name sort.
        icu::Locale locale = icu::Locale::getDefault();
        if (std::string_view(locale.getName()) == "en_US_POSIX")
            locale = icu::Locale::getRoot();
        std::unique_ptr<icu::Collator> c(icu::Collator::createInstance(locale, status));
        if (U_FAILURE(status))
            c.reset();
        else
            c->setStrength(icu::Collator::SECONDARY);
        return c;
    }();
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDelete): the analyzer ends the thread_local here.
    return collator.get();
}

} // namespace

int localizedCaseInsensitiveCompare(std::string_view a, std::string_view b) {
    icu::Collator* collator = localizedCollator();
    if (!collator) {
        const std::string ka = comparisonKey(a, true);
        const std::string kb = comparisonKey(b, true);
        return ka < kb ? -1 : (ka > kb ? 1 : 0);
    }
    UErrorCode status = U_ZERO_ERROR;
    const UCollationResult r =
        collator->compareUTF8(icu::StringPiece(a.data(), static_cast<int32_t>(a.size())),
                              icu::StringPiece(b.data(), static_cast<int32_t>(b.size())), status);
    return r == UCOL_LESS ? -1 : (r == UCOL_GREATER ? 1 : 0);
}

std::string localizedSortKey(std::string_view text) {
    icu::Collator* collator = localizedCollator();
    if (!collator)
        return comparisonKey(text, true);
    const icu::UnicodeString unicode = fromUtf8(text);
    std::string key(64, '\0');
    auto* bytes = reinterpret_cast<uint8_t*>(key.data());
    int32_t length = collator->getSortKey(unicode, bytes, static_cast<int32_t>(key.size()));
    if (length > static_cast<int32_t>(key.size())) {
        key.resize(static_cast<std::size_t>(length));
        bytes = reinterpret_cast<uint8_t*>(key.data());
        length = collator->getSortKey(unicode, bytes, length);
    }
    // The key ends with a zero byte, which takes no part in the order.
    key.resize(length > 0 ? static_cast<std::size_t>(length - 1) : 0);
    return key;
}

std::string asciiLowercase(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return out;
}

std::string lowercase(std::string_view text) {
    icu::UnicodeString s = fromUtf8(text);
    s.toLower(icu::Locale::getRoot());
    return toUtf8(s);
}

} // namespace corvel

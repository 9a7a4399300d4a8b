#pragma once
// Predicate: a parsed predicate-format string evaluated against objects.
//
// Grammar (keywords case-insensitive):
//   predicate  := or
//   or         := and (("||" | "OR") and)*
//   and        := not (("&&" | "AND") not)*
//   not        := ("!" | "NOT") not | "(" predicate ")" | TRUEPREDICATE | FALSEPREDICATE | comparison
//   comparison := expression operator expression
//   operator   := == = != <> < > <= =< >= => | BEGINSWITH | ENDSWITH | CONTAINS, the
//                 last three optionally followed by [c], [d] or [cd] (ignore case, diacritics)
//   expression := key path | number | 'string' | "string" | YES NO TRUE FALSE NIL NULL | argument
//   key path   := name ("." name | "." %@ | "." %K | "[SIZE]" | "[" index "]")*  |  %K
//   argument   := %@ %i %d %u %ld %lu %lld %llu %f (the next argument value)
// Strings take backslash escapes (\' \" \\ \n \t). An argument standing after "." or as
// %K names a key rather than a value.
//
// An argument keeps its own type and sign whatever its conversion letter: a negative
// time given for %lu stays negative.
//
// Comparison: numbers (and booleans) numerically and exactly: signed integers, integers
// above INT64_MAX and reals compare by value, an integer is never rounded to a real
// (2^53 + 1 is above 2^53 as a real); strings by Unicode code points after the modifiers'
// folding, dates by time; a number and a numeric string compare as numbers. Comparisons
// involving null, or a real that is not a number, are false, except != (and == null).

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "error.h"
#include "key_value.h"
#include "property_value.h"

namespace corvel {

inline constexpr const char* kPredicateErrorDomain = "com.halvik.Corvel.PredicateError";

class Predicate {
public:
    struct Node;

    // Parses the format with its arguments. A malformed format answers nothing and fills
    // *error (kPredicateErrorDomain) with what was expected and the byte position, also
    // found as userInfo["position"].
    static std::optional<Predicate> parse(std::string_view format, std::span<const PropertyValue> args,
                                          CVError* error);
    static std::optional<Predicate> parse(std::string_view format, CVError* error) {
        return parse(format, {}, error);
    }
    template <typename... Args>
    static std::optional<Predicate> parsef(std::string_view format, CVError* error, const Args&... args) {
        const PropertyValue values[] = {PropertyValue(args)..., PropertyValue()};
        return parse(format, std::span<const PropertyValue>(values, sizeof...(Args)), error);
    }

    // Immutable once parsed: evaluation is const and may run on any thread.
    bool evaluate(const KeyValueObject& object) const;
    bool evaluate(const PropertyValue& dictionary) const { return evaluate(DictionaryObject(dictionary)); }

    const std::string& format() const { return m_format; }

private:
    Predicate(std::string format, std::shared_ptr<const Node> root)
        : m_format(std::move(format)), m_root(std::move(root)) {}
    std::string m_format;
    std::shared_ptr<const Node> m_root;
};

} // namespace corvel

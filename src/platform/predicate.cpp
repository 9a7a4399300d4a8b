#include "predicate.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "text.h"

namespace corvel {

namespace {

enum class Op { Equal, NotEqual, Less, Greater, LessEqual, GreaterEqual, BeginsWith, EndsWith, Contains };

struct PathComponent {
    enum class Kind { Key, Size, Index } kind;
    std::string key;
    std::size_t index = 0;
};

struct Expression {
    bool isKeyPath = false;
    PropertyValue literal;
    std::vector<PathComponent> path;
};

bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (std::toupper(static_cast<unsigned char>(a[i])) != std::toupper(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

bool isIdentifierStart(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) || c == '_' || c == '$' || c == '@';
}
bool isIdentifierChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '$' || c == '@';
}

} // namespace

struct Predicate::Node {
    enum class Kind { And, Or, Not, Constant, Comparison } kind;
    std::shared_ptr<const Node> left;
    std::shared_ptr<const Node> right;
    bool constant = false;
    Expression lhs;
    Expression rhs;
    Op op = Op::Equal;
    bool ignoreCase = false;
    bool ignoreDiacritics = false;
};

namespace {

using NodePtr = std::shared_ptr<const Predicate::Node>;

class Parser {
public:
    Parser(std::string_view text, std::span<const PropertyValue> args) : m_text(text), m_args(args) {}

    NodePtr parseAll() {
        NodePtr node = parseOr();
        if (!node)
            return nullptr;
        skipSpace();
        if (m_pos != m_text.size())
            return fail("unexpected text");
        return node;
    }

    CVError error() const {
        CVError e(kPredicateErrorDomain, 1,
                  "Unable to parse the format string \"" + std::string(m_text) + "\": " + m_message +
                      " at position " + std::to_string(m_errorPos));
        e.userInfo["position"] = static_cast<unsigned long long>(m_errorPos);
        return e;
    }

private:
    NodePtr fail(std::string message) {
        if (m_message.empty()) {
            m_message = std::move(message);
            m_errorPos = m_pos;
        }
        return nullptr;
    }

    void skipSpace() {
        while (m_pos < m_text.size() && std::isspace(static_cast<unsigned char>(m_text[m_pos])))
            ++m_pos;
    }

    bool consumeSymbol(std::string_view symbol) {
        skipSpace();
        if (m_text.substr(m_pos, symbol.size()) == symbol) {
            m_pos += symbol.size();
            return true;
        }
        return false;
    }

    // A keyword matches only as a whole word.
    bool consumeKeyword(std::string_view word) {
        skipSpace();
        if (m_pos + word.size() > m_text.size() ||
            !equalsIgnoringAsciiCase(m_text.substr(m_pos, word.size()), word))
            return false;
        if (m_pos + word.size() < m_text.size() && isIdentifierChar(m_text[m_pos + word.size()]))
            return false;
        m_pos += word.size();
        return true;
    }

    NodePtr makeBinary(Predicate::Node::Kind kind, NodePtr left, NodePtr right) {
        auto node = std::make_shared<Predicate::Node>();
        node->kind = kind;
        node->left = std::move(left);
        node->right = std::move(right);
        return node;
    }

    NodePtr parseOr() {
        NodePtr left = parseAnd();
        while (left && (consumeSymbol("||") || consumeKeyword("OR"))) {
            NodePtr right = parseAnd();
            if (!right)
                return nullptr;
            left = makeBinary(Predicate::Node::Kind::Or, left, right);
        }
        return left;
    }

    NodePtr parseAnd() {
        NodePtr left = parseNot();
        while (left && (consumeSymbol("&&") || consumeKeyword("AND"))) {
            NodePtr right = parseNot();
            if (!right)
                return nullptr;
            left = makeBinary(Predicate::Node::Kind::And, left, right);
        }
        return left;
    }

    NodePtr parseNot() {
        // Nesting is bounded so that no input can exhaust the stack.
        struct DepthGuard {
            int& depth;
            explicit DepthGuard(int& d) : depth(d) { ++depth; }
            ~DepthGuard() { --depth; }
        } guard(m_depth);
        if (m_depth > kMaxNesting)
            return fail("nested too deeply");
        skipSpace();
        if (m_text.substr(m_pos, 1) == "!" && m_text.substr(m_pos, 2) != "!=") {
            ++m_pos;
            NodePtr inner = parseNot();
            return inner ? makeBinary(Predicate::Node::Kind::Not, inner, nullptr) : nullptr;
        }
        if (consumeKeyword("NOT")) {
            NodePtr inner = parseNot();
            return inner ? makeBinary(Predicate::Node::Kind::Not, inner, nullptr) : nullptr;
        }
        if (consumeSymbol("(")) {
            NodePtr inner = parseOr();
            if (!inner)
                return nullptr;
            if (!consumeSymbol(")"))
                return fail("expected ')'");
            return inner;
        }
        for (const bool value : {true, false}) {
            if (consumeKeyword(value ? "TRUEPREDICATE" : "FALSEPREDICATE")) {
                auto node = std::make_shared<Predicate::Node>();
                node->kind = Predicate::Node::Kind::Constant;
                node->constant = value;
                return node;
            }
        }
        return parseComparison();
    }

    NodePtr parseComparison() {
        auto node = std::make_shared<Predicate::Node>();
        node->kind = Predicate::Node::Kind::Comparison;
        if (!parseExpression(node->lhs))
            return nullptr;
        if (!parseOperator(*node))
            return nullptr;
        if (!parseExpression(node->rhs))
            return nullptr;
        return node;
    }

    bool parseOperator(Predicate::Node& node) {
        skipSpace();
        static constexpr std::pair<std::string_view, Op> symbols[] = {
            {"==", Op::Equal},     {"!=", Op::NotEqual},     {"<>", Op::NotEqual},     {"<=", Op::LessEqual},
            {"=<", Op::LessEqual}, {">=", Op::GreaterEqual}, {"=>", Op::GreaterEqual}, {"<", Op::Less},
            {">", Op::Greater},    {"=", Op::Equal},
        };
        static constexpr std::pair<std::string_view, Op> words[] = {
            {"BEGINSWITH", Op::BeginsWith}, {"ENDSWITH", Op::EndsWith}, {"CONTAINS", Op::Contains}};
        bool found = false;
        for (const auto& [symbol, op] : symbols) {
            if (consumeSymbol(symbol)) {
                node.op = op;
                found = true;
                break;
            }
        }
        for (const auto& [word, op] : words) {
            if (!found && consumeKeyword(word)) {
                node.op = op;
                found = true;
            }
        }
        if (!found) {
            fail("expected a comparison operator");
            return false;
        }
        return parseOperatorOptions(node);
    }

    // Options in brackets right after the operator: c ignores case, d diacritics.
    bool parseOperatorOptions(Predicate::Node& node) {
        if (m_pos >= m_text.size() || m_text[m_pos] != '[')
            return true;
        const std::size_t close = m_text.find(']', m_pos);
        if (close == std::string_view::npos) {
            fail("expected ']' after the operator's options");
            return false;
        }
        for (std::size_t i = m_pos + 1; i < close; ++i) {
            const char c = static_cast<char>(std::tolower(static_cast<unsigned char>(m_text[i])));
            if (c == 'c') {
                node.ignoreCase = true;
            } else if (c == 'd') {
                node.ignoreDiacritics = true;
            } else {
                m_pos = i;
                fail("unknown operator option");
                return false;
            }
        }
        m_pos = close + 1;
        return true;
    }

    // Reads a format argument specifier at m_pos ("%@", "%lu", "%K"); answers its
    // conversion character, or 0 when there is none.
    char parseArgumentSpecifier() {
        if (m_pos >= m_text.size() || m_text[m_pos] != '%')
            return 0;
        std::size_t i = m_pos + 1;
        while (i < m_text.size() && std::string_view("hlqzj").find(m_text[i]) != std::string_view::npos)
            ++i;
        if (i >= m_text.size() || std::string_view("@KidufgeDUx").find(m_text[i]) == std::string_view::npos)
            return 0;
        m_pos = i + 1;
        return m_text[i];
    }

    bool nextArgument(PropertyValue& value) {
        if (m_nextArg >= m_args.size()) {
            fail("not enough arguments for the format");
            return false;
        }
        value = m_args[m_nextArg++];
        return true;
    }

    bool parseExpression(Expression& expr) {
        skipSpace();
        if (m_pos >= m_text.size()) {
            fail("expected a value or a key path");
            return false;
        }
        const char c = m_text[m_pos];
        if (c == '%') {
            const std::size_t at = m_pos;
            const char conv = parseArgumentSpecifier();
            if (!conv) {
                fail("unknown format specifier");
                return false;
            }
            PropertyValue arg;
            if (!nextArgument(arg))
                return false;
            if (conv == 'K') {
                if (!arg.isString()) {
                    m_pos = at;
                    fail("%K needs a key path string");
                    return false;
                }
                expr.isKeyPath = true;
                appendKeyPathString(*arg.asString(), expr.path);
                return parseKeyPathRest(expr.path);
            }
            expr.literal = std::move(arg);
            return true;
        }
        if (c == '\'' || c == '"')
            return parseString(expr.literal);
        if (std::isdigit(static_cast<unsigned char>(c)) ||
            ((c == '-' || c == '+' || c == '.') && m_pos + 1 < m_text.size() &&
             std::isdigit(static_cast<unsigned char>(m_text[m_pos + 1]))))
            return parseNumber(expr.literal);
        // Literal words: 1 true, 0 false, -1 null.
        static constexpr std::pair<std::string_view, int> words[] = {{"YES", 1},   {"TRUE", 1}, {"NO", 0},
                                                                     {"FALSE", 0}, {"NIL", -1}, {"NULL", -1}};
        for (const auto& [word, meaning] : words) {
            if (consumeKeyword(word)) {
                expr.literal = meaning < 0 ? PropertyValue() : PropertyValue(meaning == 1);
                return true;
            }
        }
        if (!isIdentifierStart(c)) {
            fail("expected a value or a key path");
            return false;
        }
        expr.isKeyPath = true;
        expr.path.push_back({PathComponent::Kind::Key, readIdentifier(), 0});
        return parseKeyPathRest(expr.path);
    }

    static void appendKeyPathString(const std::string& keyPath, std::vector<PathComponent>& path) {
        std::size_t start = 0;
        while (start <= keyPath.size()) {
            const std::size_t dot = keyPath.find('.', start);
            const std::string part =
                keyPath.substr(start, dot == std::string::npos ? std::string::npos : dot - start);
            if (!part.empty())
                path.push_back({PathComponent::Kind::Key, part, 0});
            if (dot == std::string::npos)
                break;
            start = dot + 1;
        }
    }

    std::string readIdentifier() {
        const std::size_t start = m_pos;
        while (m_pos < m_text.size() && isIdentifierChar(m_text[m_pos]))
            ++m_pos;
        return std::string(m_text.substr(start, m_pos - start));
    }

    bool parseKeyPathRest(std::vector<PathComponent>& path) {
        for (;;) {
            if (m_pos < m_text.size() && m_text[m_pos] == '.') {
                ++m_pos;
                if (m_pos < m_text.size() && m_text[m_pos] == '%') {
                    if (!parseArgumentSpecifier()) {
                        fail("unknown format specifier");
                        return false;
                    }
                    PropertyValue arg;
                    if (!nextArgument(arg))
                        return false;
                    appendKeyPathString(arg.toString(), path);
                    continue;
                }
                if (m_pos >= m_text.size() || !isIdentifierStart(m_text[m_pos])) {
                    fail("expected a key after '.'");
                    return false;
                }
                path.push_back({PathComponent::Kind::Key, readIdentifier(), 0});
                continue;
            }
            if (m_pos < m_text.size() && m_text[m_pos] == '[') {
                const std::size_t close = m_text.find(']', m_pos);
                if (close == std::string_view::npos) {
                    fail("expected ']'");
                    return false;
                }
                const std::string_view inside = m_text.substr(m_pos + 1, close - m_pos - 1);
                if (equalsIgnoringAsciiCase(inside, "SIZE")) {
                    path.push_back({PathComponent::Kind::Size, {}, 0});
                } else if (!inside.empty() &&
                           inside.find_first_not_of("0123456789") == std::string_view::npos) {
                    std::uint64_t index = 0;
                    const auto [end, ec] =
                        std::from_chars(inside.data(), inside.data() + inside.size(), index);
                    if (ec != std::errc() || end != inside.data() + inside.size()) {
                        ++m_pos;
                        fail("index out of range");
                        return false;
                    }
                    path.push_back({PathComponent::Kind::Index, {}, static_cast<std::size_t>(index)});
                } else {
                    ++m_pos;
                    fail("expected SIZE or an index inside '[]'");
                    return false;
                }
                m_pos = close + 1;
                continue;
            }
            return true;
        }
    }

    bool parseString(PropertyValue& out) {
        const std::size_t start = m_pos;
        const char quote = m_text[m_pos++];
        std::string value;
        while (m_pos < m_text.size() && m_text[m_pos] != quote) {
            char c = m_text[m_pos++];
            if (c == '\\' && m_pos < m_text.size()) {
                c = m_text[m_pos++];
                if (c == 'n')
                    c = '\n';
                else if (c == 't')
                    c = '\t';
                else if (c == 'r')
                    c = '\r';
            }
            value += c;
        }
        if (m_pos >= m_text.size()) {
            m_pos = start;
            fail("unterminated string");
            return false;
        }
        ++m_pos;
        out = std::move(value);
        return true;
    }

    bool parseNumber(PropertyValue& out) {
        const std::size_t start = m_pos;
        if (m_text[m_pos] == '-' || m_text[m_pos] == '+')
            ++m_pos;
        bool real = false;
        while (m_pos < m_text.size() &&
               (std::isdigit(static_cast<unsigned char>(m_text[m_pos])) || m_text[m_pos] == '.' ||
                m_text[m_pos] == 'e' || m_text[m_pos] == 'E' ||
                ((m_text[m_pos] == '-' || m_text[m_pos] == '+') &&
                 (m_text[m_pos - 1] == 'e' || m_text[m_pos - 1] == 'E')))) {
            real = real || !std::isdigit(static_cast<unsigned char>(m_text[m_pos]));
            ++m_pos;
        }
        // from_chars: no locale (a decimal comma never changes the meaning), no exceptions,
        // and a value that does not fit its type is reported rather than clamped.
        const char* first = m_text.data() + start;
        const char* last = m_text.data() + m_pos;
        if (*first == '+')
            ++first;
        std::from_chars_result result{};
        if (real) {
            double d = 0;
            result = std::from_chars(first, last, d, std::chars_format::general);
            out = d;
        } else if (*first == '-') {
            long long i = 0;
            result = std::from_chars(first, last, i);
            out = i;
        } else {
            unsigned long long u = 0;
            result = std::from_chars(first, last, u);
            out = u;
        }
        if (result.ec != std::errc() || result.ptr != last) {
            m_pos = start;
            fail(result.ec == std::errc::result_out_of_range ? "number out of range" : "malformed number");
            return false;
        }
        return true;
    }

    static constexpr int kMaxNesting = 200;

    std::string_view m_text;
    std::span<const PropertyValue> m_args;
    int m_depth = 0;
    std::size_t m_pos = 0;
    std::size_t m_nextArg = 0;
    std::string m_message;
    std::size_t m_errorPos = 0;
};

PropertyValue resolve(const Expression& expr, const KeyValueObject& root) {
    if (!expr.isKeyPath)
        return expr.literal;
    const KeyValueObject* object = &root;
    PropertyValue value;
    for (std::size_t i = 0; i < expr.path.size(); ++i) {
        const PathComponent& c = expr.path[i];
        const bool last = i + 1 == expr.path.size();
        switch (c.kind) {
        case PathComponent::Kind::Key:
            if (object) {
                if (!last) {
                    if (const KeyValueObject* next = object->objectForKey(c.key)) {
                        object = next;
                        continue;
                    }
                }
                value = object->valueForKey(c.key);
                object = nullptr;
            } else {
                value = PropertyValue(value[c.key]);
            }
            break;
        case PathComponent::Kind::Size:
            if (object) {
                // [SIZE] on an object with no value: nothing to count.
                return PropertyValue(0);
            }
            value = PropertyValue(static_cast<unsigned long long>(value.count()));
            break;
        case PathComponent::Kind::Index:
            if (object)
                return {};
            value = PropertyValue(value[c.index]);
            break;
        }
    }
    return object ? PropertyValue() : value;
}

// A number as comparisons see it: a signed integer, an integer above INT64_MAX, or a real.
struct Number {
    enum class Kind { Signed, Unsigned, Real } kind = Kind::Signed;
    std::int64_t i = 0;
    std::uint64_t u = 0;
    double d = 0;
};

// A number from a number, or from a string that holds nothing else (integers exactly).
std::optional<Number> numberOf(const PropertyValue& v) {
    using Type = PropertyValue::Type;
    if (v.type() == Type::Real)
        return Number{Number::Kind::Real, 0, 0, v.toDouble()};
    if (v.isNumber()) {
        if (v.isUnsignedInteger())
            return Number{Number::Kind::Unsigned, 0, v.toUInt64(), 0};
        return Number{Number::Kind::Signed, v.toInt64(), 0, 0};
    }
    const std::string* s = v.asString();
    if (!s || s->empty())
        return std::nullopt;
    const char* first = s->data();
    const char* last = first + s->size();
    std::int64_t i = 0;
    if (auto [end, ec] = std::from_chars(first, last, i); ec == std::errc() && end == last)
        return Number{Number::Kind::Signed, i, 0, 0};
    std::uint64_t u = 0;
    if (auto [end, ec] = std::from_chars(first, last, u); ec == std::errc() && end == last)
        return Number{Number::Kind::Unsigned, 0, u, 0};
    char* end = nullptr;
    const double d = std::strtod(s->c_str(), &end);
    if (*end != '\0')
        return std::nullopt;
    return Number{Number::Kind::Real, 0, 0, d};
}

template <typename T> int sign(T x, T y) {
    return x < y ? -1 : (y < x ? 1 : 0);
}

// An integer against a real, exactly (no rounding of the integer to a double).
int compareIntegerWithReal(const Number& n, double d) {
    constexpr double kTwo63 = 9223372036854775808.0;
    constexpr double kTwo64 = 18446744073709551616.0;
    const bool isSigned = n.kind == Number::Kind::Signed;
    if (d >= (isSigned ? kTwo63 : kTwo64))
        return -1;
    if (d < (isSigned ? -kTwo63 : kTwo63))
        return 1;
    // The real's whole part now fits the integer's type.
    const double whole = std::trunc(d);
    const int wholeOrder =
        isSigned ? sign(n.i, static_cast<std::int64_t>(whole)) : sign(n.u, static_cast<std::uint64_t>(whole));
    if (wholeOrder != 0)
        return wholeOrder;
    return sign(whole, d); // the same whole part: the fraction decides
}

// Orders two numbers; nothing when either is not a number (NaN).
std::optional<int> compareNumbers(const Number& a, const Number& b) {
    using Kind = Number::Kind;
    if ((a.kind == Kind::Real && std::isnan(a.d)) || (b.kind == Kind::Real && std::isnan(b.d)))
        return std::nullopt;
    if (a.kind == Kind::Real && b.kind == Kind::Real)
        return sign(a.d, b.d);
    if (b.kind == Kind::Real)
        return compareIntegerWithReal(a, b.d);
    if (a.kind == Kind::Real)
        return -compareIntegerWithReal(b, a.d);
    if (a.kind == Kind::Signed && b.kind == Kind::Signed)
        return sign(a.i, b.i);
    if (a.kind == Kind::Unsigned && b.kind == Kind::Unsigned)
        return sign(a.u, b.u);
    // One is above INT64_MAX, so it is the larger.
    return a.kind == Kind::Unsigned ? 1 : -1;
}

// Orders two values: negative, zero or positive; nothing when they do not compare.
std::optional<int> order(const PropertyValue& a, const PropertyValue& b, bool ignoreCase,
                         bool ignoreDiacritics) {
    using Type = PropertyValue::Type;
    if (a.isNumber() || b.isNumber()) {
        // A number compares with a number or a numeric string, exactly.
        const auto x = numberOf(a);
        const auto y = numberOf(b);
        if (!x || !y)
            return std::nullopt;
        return compareNumbers(*x, *y);
    }
    if (a.isString() && b.isString()) {
        if (!ignoreCase && !ignoreDiacritics)
            return sign(*a.asString(), *b.asString());
        return sign(comparisonKey(*a.asString(), ignoreCase, ignoreDiacritics),
                    comparisonKey(*b.asString(), ignoreCase, ignoreDiacritics));
    }
    if (a.type() == Type::Date && b.type() == Type::Date)
        return sign(a.asDate()->secondsSince1970, b.asDate()->secondsSince1970);
    if (a.type() == b.type() && !a.isNull())
        return a == b ? std::optional<int>(0) : std::nullopt;
    return std::nullopt;
}

bool compareStrings(Op op, const std::string& hay, const std::string& needle, bool ignoreCase,
                    bool ignoreDiacritics) {
    const std::string h =
        (ignoreCase || ignoreDiacritics) ? comparisonKey(hay, ignoreCase, ignoreDiacritics) : hay;
    const std::string n =
        (ignoreCase || ignoreDiacritics) ? comparisonKey(needle, ignoreCase, ignoreDiacritics) : needle;
    switch (op) {
    case Op::BeginsWith:
        return h.starts_with(n);
    case Op::EndsWith:
        return h.ends_with(n);
    default:
        return h.find(n) != std::string::npos;
    }
}

bool compare(const Predicate::Node& node, const PropertyValue& a, const PropertyValue& b) {
    switch (node.op) {
    case Op::Equal:
    case Op::NotEqual: {
        bool equal;
        if (a.isNull() || b.isNull())
            equal = a.isNull() && b.isNull();
        else {
            const auto o = order(a, b, node.ignoreCase, node.ignoreDiacritics);
            equal = o && *o == 0;
        }
        return node.op == Op::Equal ? equal : !equal;
    }
    case Op::Less:
    case Op::Greater:
    case Op::LessEqual:
    case Op::GreaterEqual: {
        if (a.isNull() || b.isNull())
            return false;
        const auto o = order(a, b, node.ignoreCase, node.ignoreDiacritics);
        if (!o)
            return false;
        return node.op == Op::Less        ? *o < 0
               : node.op == Op::Greater   ? *o > 0
               : node.op == Op::LessEqual ? *o <= 0
                                          : *o >= 0;
    }
    case Op::BeginsWith:
    case Op::EndsWith:
    case Op::Contains:
        if (node.op == Op::Contains && a.isArray()) {
            for (const auto& element : *a.asArray()) {
                const auto o = order(element, b, node.ignoreCase, node.ignoreDiacritics);
                if (o && *o == 0)
                    return true;
            }
            return false;
        }
        if (!a.isString() || !b.isString())
            return false;
        return compareStrings(node.op, *a.asString(), *b.asString(), node.ignoreCase, node.ignoreDiacritics);
    }
    return false;
}

bool evaluateNode(const Predicate::Node& node, const KeyValueObject& object) {
    switch (node.kind) {
    case Predicate::Node::Kind::And:
        return evaluateNode(*node.left, object) && evaluateNode(*node.right, object);
    case Predicate::Node::Kind::Or:
        return evaluateNode(*node.left, object) || evaluateNode(*node.right, object);
    case Predicate::Node::Kind::Not:
        return !evaluateNode(*node.left, object);
    case Predicate::Node::Kind::Constant:
        return node.constant;
    case Predicate::Node::Kind::Comparison:
        return compare(node, resolve(node.lhs, object), resolve(node.rhs, object));
    }
    return false;
}

} // namespace

std::optional<Predicate> Predicate::parse(std::string_view format, std::span<const PropertyValue> args,
                                          CVError* error) {
    Parser parser(format, args);
    NodePtr root = parser.parseAll();
    if (!root) {
        setError(error, parser.error());
        return std::nullopt;
    }
    return Predicate(std::string(format), std::move(root));
}

bool Predicate::evaluate(const KeyValueObject& object) const {
    return evaluateNode(*m_root, object);
}

} // namespace corvel

#include "property_list.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <plist/plist.h>
#include <vector>

#include "file_io.h"

namespace corvel {

namespace {

// Seconds between 1970-01-01 and 2001-01-01, the epoch of property-list dates.
constexpr double kReferenceDateOffset = 978307200.0;

struct PlistDeleter {
    void operator()(plist_t p) const { plist_free(p); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

bool isBinary(std::string_view bytes) {
    return bytes.size() >= 8 && bytes.substr(0, 6) == "bplist";
}

bool startsWith(std::string_view s, std::size_t at, std::string_view prefix) {
    return s.size() >= at + prefix.size() && s.compare(at, prefix.size(), prefix) == 0;
}

std::uint64_t saturatingAdd(std::uint64_t a, std::uint64_t b) {
    return a > UINT64_MAX - b ? UINT64_MAX : a + b;
}

// What the pre-pass learns about a list before libplist sees it.
struct ListShape {
    int depth = 0;           // deepest container nesting; -1 when unmeasurable
    std::uint64_t nodes = 0; // expanded node count
    bool holdsNul = false;   // a string or key holds a NUL character
    // XML only: the value of every <date> element in document order (nothing where its
    // text is not one this layer reads itself), the number of <integer> elements and the
    // positions among them of those above INT64_MAX (libplist drops their sign flag).
    std::vector<std::optional<double>> dates;
    std::size_t integers = 0;
    std::vector<std::size_t> unsignedIntegers;
};

std::int64_t daysFromCivil(std::int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const auto yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

void civilFromDays(std::int64_t z, std::int64_t& y, unsigned& m, unsigned& d) {
    z += 719468;
    const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const auto doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = doy - (153 * mp + 2) / 5 + 1;
    m = mp < 10 ? mp + 3 : mp - 9;
    y = static_cast<std::int64_t>(yoe) + era * 400 + (m <= 2);
}

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// "YYYY-MM-DDTHH:MM:SS[.fraction]Z" as seconds since 1970.
std::optional<double> parseXmlDate(std::string_view text) {
    text = trimmed(text);
    auto number = [&](std::size_t at, std::size_t width, unsigned max) -> std::optional<unsigned> {
        unsigned v = 0;
        for (std::size_t k = at; k < at + width; ++k) {
            if (k >= text.size() || text[k] < '0' || text[k] > '9')
                return std::nullopt;
            v = v * 10 + static_cast<unsigned>(text[k] - '0');
        }
        return v <= max ? std::optional<unsigned>(v) : std::nullopt;
    };
    const auto year = number(0, 4, 9999), month = number(5, 2, 12), day = number(8, 2, 31),
               hour = number(11, 2, 23), minute = number(14, 2, 59), second = number(17, 2, 59);
    if (!year || !month || !day || !hour || !minute || !second || *year == 0 || *month == 0 || *day == 0 ||
        text.size() < 20 || text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' ||
        text[16] != ':' || text.back() != 'Z')
        return std::nullopt;
    std::string fraction = "0";
    if (text.size() > 20) {
        if (text[19] != '.' || text.size() < 22)
            return std::nullopt;
        fraction = "0." + std::string(text.substr(20, text.size() - 21));
        if (fraction.find_first_not_of("0123456789", 2) != std::string::npos)
            return std::nullopt;
    }
    const std::int64_t whole = daysFromCivil(*year, *month, *day) * 86400 + std::int64_t{*hour} * 3600 +
                               std::int64_t{*minute} * 60 + *second;
    return static_cast<double>(static_cast<long double>(whole) + std::strtold(fraction.c_str(), nullptr));
}

std::string formatXmlDate(double secondsSince1970) {
    // Years 1 to 9999, the range the text form can carry; the last instant is the double
    // just below year 10000 (a fraction near 1 read from the text may round up to it).
    const double t =
        std::fmax(-62135596800.0, std::fmin(std::nextafter(253402300800.0, 0.0), secondsSince1970));
    const double whole = std::floor(t);
    const auto seconds = static_cast<std::int64_t>(whole);
    std::int64_t days = seconds / 86400;
    std::int64_t rest = seconds % 86400;
    if (rest < 0) {
        rest += 86400;
        --days;
    }
    std::int64_t y = 0;
    unsigned m = 0, d = 0;
    civilFromDays(days, y, m, d);
    char text[40];
    std::snprintf(text, sizeof text, "%04lld-%02u-%02uT%02lld:%02lld:%02lld", static_cast<long long>(y), m, d,
                  static_cast<long long>(rest / 3600), static_cast<long long>(rest / 60 % 60),
                  static_cast<long long>(rest % 60));
    std::string out = text;
    // The fewest fraction digits (up to nine) that read back as the same value.
    const double fraction = t - whole;
    if (fraction > 0) {
        for (int digits = 1; digits <= 9; ++digits) {
            char f[16];
            std::snprintf(f, sizeof f, "%.*f", digits, fraction);
            if (f[0] != '0')
                continue; // rounds up to the next second: more digits, else the whole second
            const std::string candidate = out + (f + 1) + "Z";
            const auto back = parseXmlDate(candidate);
            if ((back && *back == t) || digits == 9) {
                out += f + 1;
                break;
            }
        }
    }
    return out + "Z";
}

// A decimal integer: signed when it fits 64 signed bits or carries a minus sign,
// unsigned up to UINT64_MAX.
std::optional<PropertyValue> parseXmlInteger(std::string_view text) {
    text = trimmed(text);
    bool negative = false;
    if (!text.empty() && (text[0] == '-' || text[0] == '+')) {
        negative = text[0] == '-';
        text.remove_prefix(1);
    }
    if (text.empty() || text.size() > 20 || text.find_first_not_of("0123456789") != std::string_view::npos)
        return std::nullopt;
    std::uint64_t v = 0;
    for (const char c : text) {
        const auto digit = static_cast<std::uint64_t>(c - '0');
        if (v > (UINT64_MAX - digit) / 10)
            return std::nullopt;
        v = v * 10 + digit;
    }
    if (negative) {
        if (v > std::uint64_t{1} << 63)
            return std::nullopt;
        return PropertyValue(static_cast<long long>(0 - v));
    }
    if (v > INT64_MAX)
        return PropertyValue(static_cast<unsigned long long>(v));
    return PropertyValue(static_cast<long long>(v));
}

// True when character data holds a numeric character reference to NUL (&#0;, &#x00; ...).
bool referencesNul(std::string_view text) {
    for (std::size_t i = 0; (i = text.find("&#", i)) != std::string_view::npos; i += 2) {
        std::size_t k = i + 2;
        const bool hex = k < text.size() && (text[k] == 'x' || text[k] == 'X');
        if (hex)
            ++k;
        const std::size_t digitsAt = k;
        bool nonZero = false;
        while (k < text.size() && std::isxdigit(static_cast<unsigned char>(text[k])) &&
               (hex || std::isdigit(static_cast<unsigned char>(text[k])))) {
            nonZero = nonZero || text[k] != '0';
            ++k;
        }
        if (k > digitsAt && !nonZero)
            return true;
    }
    return false;
}

// Walks an XML list by its tags, skipping comments, CDATA and processing instructions,
// so that hidden closing tags cannot make a deep list look flat. Counts container
// nesting and elements, finds references to NUL and collects date and integer texts.
ListShape xmlShape(std::string_view s, int limit) {
    ListShape shape;
    shape.holdsNul = s.find('\0') != std::string_view::npos;
    int depth = 0;
    std::size_t i = 0;
    std::size_t textFrom = 0;
    while ((i = s.find('<', i)) != std::string_view::npos) {
        if (referencesNul(s.substr(textFrom, i - textFrom)))
            shape.holdsNul = true;
        std::string_view end;
        if (startsWith(s, i, "<!--"))
            end = "-->";
        else if (startsWith(s, i, "<![CDATA["))
            end = "]]>";
        else if (startsWith(s, i, "<?"))
            end = "?>";
        if (!end.empty()) {
            const auto close = s.find(end, i);
            if (close == std::string_view::npos)
                return shape;
            i = textFrom = close + end.size();
            continue;
        }
        const bool closing = startsWith(s, i, "</");
        const std::size_t nameAt = i + (closing ? 2 : 1);
        const auto tagEnd = s.find('>', i);
        if (tagEnd == std::string_view::npos)
            return shape;
        const std::size_t nameEnd = std::min(s.find_first_of(" \t\r\n/>", nameAt), tagEnd);
        const std::string_view name = s.substr(nameAt, nameEnd - nameAt);
        const bool selfClosing = s[tagEnd - 1] == '/';
        if (!closing && s[i + 1] != '!')
            ++shape.nodes;
        if (name == "array" || name == "dict") {
            if (closing) {
                depth = depth > 0 ? depth - 1 : 0;
            } else if (!selfClosing) {
                if (++depth > shape.depth)
                    shape.depth = depth;
                if (shape.depth > limit)
                    return shape;
            }
        } else if (!closing && (name == "date" || name == "integer")) {
            std::string_view text;
            bool plainText = false;
            const auto next = s.find('<', tagEnd);
            if (!selfClosing && next != std::string_view::npos && startsWith(s, next + 2, name) &&
                startsWith(s, next, "</")) {
                text = s.substr(tagEnd + 1, next - tagEnd - 1);
                plainText = true;
            }
            if (name == "date") {
                shape.dates.push_back(plainText ? parseXmlDate(text) : std::nullopt);
            } else {
                if (plainText) {
                    const auto value = parseXmlInteger(text);
                    if (value && value->isUnsignedInteger())
                        shape.unsignedIntegers.push_back(shape.integers);
                }
                ++shape.integers;
            }
        }
        i = textFrom = tagEnd + 1;
    }
    return shape;
}

std::uint64_t readBigEndian(std::string_view s, std::size_t at, std::size_t width) {
    std::uint64_t v = 0;
    for (std::size_t k = 0; k < width; ++k)
        v = (v << 8) | static_cast<unsigned char>(s[at + k]);
    return v;
}

// The trailer and offset table of a binary property list, checked against its size.
struct BinaryTable {
    std::string_view s;
    std::size_t trailer = 0;
    std::size_t offsetSize = 0;
    std::size_t refSize = 0;
    std::uint64_t numObjects = 0;
    std::uint64_t topObject = 0;
    std::uint64_t tableOffset = 0;

    // Nothing when the trailer is short or its figures do not fit the list.
    static std::optional<BinaryTable> read(std::string_view s) {
        if (s.size() < 8 + 32)
            return std::nullopt;
        BinaryTable t;
        t.s = s;
        t.trailer = s.size() - 32;
        t.offsetSize = static_cast<unsigned char>(s[t.trailer + 6]);
        t.refSize = static_cast<unsigned char>(s[t.trailer + 7]);
        t.numObjects = readBigEndian(s, t.trailer + 8, 8);
        t.topObject = readBigEndian(s, t.trailer + 16, 8);
        t.tableOffset = readBigEndian(s, t.trailer + 24, 8);
        if (t.offsetSize == 0 || t.offsetSize > 8 || t.refSize == 0 || t.refSize > 8 ||
            t.topObject >= t.numObjects || t.numObjects > s.size() || t.tableOffset > t.trailer ||
            (t.trailer - t.tableOffset) / t.offsetSize < t.numObjects)
            return std::nullopt;
        return t;
    }

    std::uint64_t objectOffset(std::uint64_t index) const {
        return readBigEndian(s, static_cast<std::size_t>(tableOffset + index * offsetSize), offsetSize);
    }

    std::uint64_t reference(std::size_t refsAt, std::uint64_t k) const {
        return readBigEndian(s, static_cast<std::size_t>(refsAt + k * refSize), refSize);
    }

    // The child references of a container object as (first reference's position, count),
    // count 0 for scalars; sets holdsNul for a string holding NUL. False when the object
    // does not fit the list.
    bool children(std::uint64_t index, std::size_t& refsAt, std::uint64_t& count, bool& holdsNul) const {
        std::uint64_t at = objectOffset(index);
        if (at >= trailer)
            return false;
        const auto marker = static_cast<unsigned char>(s[at]);
        const unsigned kind = marker >> 4;
        count = 0;
        const bool container = kind == 0xA || kind == 0xC || kind == 0xD;
        const bool string = kind == 0x5 || kind == 0x6 || kind == 0x7;
        if (!container && !string)
            return true;
        count = marker & 0x0F;
        ++at;
        if (count == 0x0F) {
            if (at >= trailer || (static_cast<unsigned char>(s[at]) >> 4) != 0x1)
                return false;
            const std::size_t width = std::size_t{1} << (static_cast<unsigned char>(s[at]) & 0x0F);
            if (width > 8 || at + 1 + width > trailer)
                return false;
            count = readBigEndian(s, at + 1, width);
            at += 1 + width;
        }
        if (string) {
            const std::uint64_t unit = kind == 0x6 ? 2 : 1;
            if (count > trailer || at + count * unit > trailer)
                return false;
            for (std::uint64_t k = 0; k < count; ++k)
                if (readBigEndian(s, static_cast<std::size_t>(at + k * unit), unit) == 0)
                    holdsNul = true;
            count = 0;
            return true;
        }
        if (kind == 0xD)
            count *= 2;
        if (count > trailer || at + count * refSize > trailer)
            return false;
        refsAt = static_cast<std::size_t>(at);
        return true;
    }
};

// Walks a binary list's object graph from the top object. Every object's height and
// expanded node count are computed once, so shared objects cost nothing extra to
// measure; a reference cycle makes the list unmeasurable (depth -1). Strings reached
// are checked for NUL characters.
ListShape binaryShape(std::string_view s, int limit) {
    ListShape shape;
    shape.depth = -1;
    const std::optional<BinaryTable> table = BinaryTable::read(s);
    if (!table)
        return shape;
    std::vector<int> height(static_cast<std::size_t>(table->numObjects), -2); // -2 unvisited, -1 in progress
    std::vector<std::uint64_t> nodes(static_cast<std::size_t>(table->numObjects), 0);
    struct Frame {
        std::uint64_t object;
        std::size_t refsAt;
        std::uint64_t count;
        std::uint64_t next;
        int best;
        std::uint64_t nodes;
    };
    std::vector<Frame> stack;
    auto push = [&](std::uint64_t object) -> bool {
        Frame f{object, 0, 0, 0, 0, 1};
        if (!table->children(object, f.refsAt, f.count, shape.holdsNul))
            return false;
        height[object] = -1;
        stack.push_back(f);
        return static_cast<int>(stack.size()) <= limit + 1;
    };
    if (!push(table->topObject))
        return shape;
    while (!stack.empty()) {
        Frame& f = stack.back();
        if (f.next == f.count) {
            const int h = f.count > 0 ? f.best + 1 : 0;
            height[f.object] = h;
            nodes[f.object] = f.nodes;
            const std::uint64_t n = f.nodes;
            stack.pop_back();
            if (stack.empty()) {
                shape.depth = h;
                shape.nodes = n;
            } else {
                stack.back().best = std::max(stack.back().best, h);
                stack.back().nodes = saturatingAdd(stack.back().nodes, n);
            }
            continue;
        }
        const std::uint64_t child = table->reference(f.refsAt, f.next);
        ++f.next;
        if (child >= table->numObjects || height[child] == -1)
            return shape;
        if (height[child] >= 0) {
            f.best = std::max(f.best, height[child]);
            f.nodes = saturatingAdd(f.nodes, nodes[child]);
            continue;
        }
        if (!push(child)) {
            if (static_cast<int>(stack.size()) > limit + 1)
                shape.depth = limit + 1;
            return shape;
        }
    }
    return shape;
}

ListShape listShape(std::string_view bytes, int limit) {
    return isBinary(bytes) ? binaryShape(bytes, limit) : xmlShape(bytes, limit);
}

// Values taken from the XML text in place of libplist's, consumed in document order.
struct TextValues {
    const std::vector<std::optional<double>>* dates = nullptr;
    const std::vector<std::size_t>* unsignedIntegers = nullptr;
    std::size_t nextDate = 0;
    std::size_t nextInteger = 0;
    std::size_t nextUnsigned = 0;

    std::optional<double> takeDate() {
        if (!dates || nextDate >= dates->size())
            return std::nullopt;
        return (*dates)[nextDate++];
    }
    // True when the next integer was written above INT64_MAX.
    bool takeIntegerIsUnsigned() {
        const std::size_t index = nextInteger++;
        if (!unsignedIntegers || nextUnsigned >= unsignedIntegers->size() ||
            (*unsignedIntegers)[nextUnsigned] != index)
            return false;
        ++nextUnsigned;
        return true;
    }
};

// Counts the date and integer nodes of a parsed tree, in the order fromPlist meets them.
void countScalars(plist_t node, std::size_t& dates, std::size_t& integers) {
    switch (plist_get_node_type(node)) {
    case PLIST_DATE:
        ++dates;
        break;
    case PLIST_UINT:
    case PLIST_UID:
        ++integers;
        break;
    case PLIST_ARRAY: {
        const std::uint32_t n = plist_array_get_size(node);
        for (std::uint32_t i = 0; i < n; ++i)
            countScalars(plist_array_get_item(node, i), dates, integers);
        break;
    }
    case PLIST_DICT: {
        plist_dict_iter it = nullptr;
        plist_dict_new_iter(node, &it);
        for (;;) {
            plist_t value = nullptr;
            plist_dict_next_item(node, it, nullptr, &value);
            if (!value)
                break;
            countScalars(value, dates, integers);
        }
        std::free(it);
        break;
    }
    default:
        break;
    }
}

PropertyValue fromPlist(plist_t node, TextValues& text);

PropertyValue arrayFromPlist(plist_t node, TextValues& text) {
    PropertyValue::Array array;
    const std::uint32_t n = plist_array_get_size(node);
    array.reserve(n);
    for (std::uint32_t i = 0; i < n; ++i)
        array.push_back(fromPlist(plist_array_get_item(node, i), text));
    return PropertyValue(std::move(array));
}

PropertyValue dictionaryFromPlist(plist_t node, TextValues& text) {
    PropertyValue::Dictionary dict;
    plist_dict_iter it = nullptr;
    plist_dict_new_iter(node, &it);
    for (;;) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(node, it, &key, &value);
        if (!key)
            break;
        dict.insert_or_assign(std::string(key), fromPlist(value, text));
        std::free(key);
    }
    std::free(it);
    return PropertyValue(std::move(dict));
}

PropertyValue fromPlist(plist_t node, TextValues& text) {
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        std::uint8_t b = 0;
        plist_get_bool_val(node, &b);
        return PropertyValue(b != 0);
    }
    case PLIST_UINT: {
        std::uint64_t v = 0;
        plist_get_uint_val(node, &v);
        if (text.takeIntegerIsUnsigned())
            return PropertyValue(static_cast<unsigned long long>(v));
        // libplist keeps signed and unsigned alike as 64 bits; read them as signed.
        return PropertyValue(static_cast<long long>(v));
    }
    case PLIST_REAL: {
        double d = 0;
        plist_get_real_val(node, &d);
        return PropertyValue(d);
    }
    case PLIST_STRING: {
        // Read with its length: the pre-pass refuses NUL, this never stops at one either.
        std::uint64_t length = 0;
        const char* str = plist_get_string_ptr(node, &length);
        return PropertyValue(str ? std::string(str, static_cast<std::size_t>(length)) : std::string());
    }
    case PLIST_KEY: {
        char* str = nullptr;
        plist_get_key_val(node, &str);
        PropertyValue v(str ? std::string(str) : std::string());
        std::free(str);
        return v;
    }
    case PLIST_DATE: {
        if (const auto exact = text.takeDate())
            return PropertyValue(PropertyDate{*exact});
        std::int32_t sec = 0;
        std::int32_t usec = 0;
        plist_get_date_val(node, &sec, &usec);
        return PropertyValue(PropertyDate{kReferenceDateOffset + sec + usec / 1e6});
    }
    case PLIST_DATA: {
        char* bytes = nullptr;
        std::uint64_t length = 0;
        plist_get_data_val(node, &bytes, &length);
        PropertyValue::Data data(bytes, bytes + length);
        std::free(bytes);
        return PropertyValue(std::move(data));
    }
    case PLIST_ARRAY:
        return arrayFromPlist(node, text);
    case PLIST_DICT:
        return dictionaryFromPlist(node, text);
    case PLIST_UID: {
        text.takeIntegerIsUnsigned(); // written as an <integer> in XML
        std::uint64_t v = 0;
        plist_get_uid_val(node, &v);
        return PropertyValue(static_cast<long long>(v));
    }
    default:
        return {};
    }
}

// True when the string is valid UTF-8 whose every character XML 1.0 can carry: no NUL,
// no control character but tab, line feed and carriage return, no U+FFFE or U+FFFF.
bool carriableAsText(std::string_view s) {
    for (std::size_t i = 0; i < s.size();) {
        const auto c = static_cast<unsigned char>(s[i]);
        std::uint32_t cp = 0;
        std::size_t n = 0;
        if (c < 0x80) {
            cp = c;
            n = 1;
        } else if (c >= 0xC2 && c <= 0xDF) {
            cp = c & 0x1F;
            n = 2;
        } else if (c >= 0xE0 && c <= 0xEF) {
            cp = c & 0x0F;
            n = 3;
        } else if (c >= 0xF0 && c <= 0xF4) {
            cp = c & 0x07;
            n = 4;
        } else {
            return false;
        }
        if (i + n > s.size())
            return false;
        for (std::size_t k = 1; k < n; ++k) {
            const auto cc = static_cast<unsigned char>(s[i + k]);
            if ((cc & 0xC0) != 0x80)
                return false;
            cp = (cp << 6) | (cc & 0x3F);
        }
        const bool overlong = (n == 3 && cp < 0x800) || (n == 4 && cp < 0x10000);
        if (overlong || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF) || cp == 0xFFFE || cp == 0xFFFF ||
            (cp < 0x20 && cp != '\t' && cp != '\n' && cp != '\r'))
            return false;
        i += n;
    }
    return true;
}

// Builds libplist's tree for the binary writer. Answers nullptr for a null value and
// sets *failed when a dictionary key cannot be carried.
plist_t toPlist(const PropertyValue& value, bool& failed) {
    using Type = PropertyValue::Type;
    switch (value.type()) {
    case Type::Null:
        return nullptr;
    case Type::Bool:
        return plist_new_bool(*value.asBool() ? 1 : 0);
    case Type::Integer:
        return plist_new_uint(static_cast<std::uint64_t>(*value.asInteger()));
    case Type::Real:
        return plist_new_real(*value.asReal());
    case Type::String: {
        const std::string& str = *value.asString();
        if (carriableAsText(str))
            return plist_new_string(str.c_str());
        return plist_new_data(str.data(), str.size());
    }
    case Type::Date: {
        double rel = value.asDate()->secondsSince1970 - kReferenceDateOffset;
        rel = std::fmax(-2147483648.0, std::fmin(2147483647.0, rel));
        double whole = std::floor(rel);
        return plist_new_date(static_cast<std::int32_t>(whole),
                              static_cast<std::int32_t>((rel - whole) * 1e6));
    }
    case Type::Data: {
        const auto* data = value.asData();
        return plist_new_data(reinterpret_cast<const char*>(data->data()), data->size());
    }
    case Type::Array: {
        plist_t array = plist_new_array();
        for (const auto& item : *value.asArray())
            if (plist_t child = toPlist(item, failed))
                plist_array_append_item(array, child);
        return array;
    }
    case Type::Dictionary: {
        plist_t dict = plist_new_dict();
        for (const auto& [key, item] : *value.asDictionary()) {
            if (!carriableAsText(key)) {
                failed = true;
                continue;
            }
            if (plist_t child = toPlist(item, failed))
                plist_dict_set_item(dict, key.c_str(), child);
        }
        return dict;
    }
    }
    return nullptr;
}

// Writes XML text content: markup characters and carriage returns (which XML readers
// turn into line feeds) as references.
void appendEscaped(std::string& out, std::string_view text) {
    for (const char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '\r':
            out += "&#13;";
            break;
        default:
            out += c;
        }
    }
}

void appendBase64(std::string& out, const std::uint8_t* bytes, std::size_t size) {
    static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (std::size_t i = 0; i < size; i += 3) {
        const std::uint32_t n = (std::uint32_t{bytes[i]} << 16) | (i + 1 < size ? bytes[i + 1] << 8 : 0) |
                                (i + 2 < size ? bytes[i + 2] : 0);
        out += kAlphabet[(n >> 18) & 63];
        out += kAlphabet[(n >> 12) & 63];
        out += i + 1 < size ? kAlphabet[(n >> 6) & 63] : '=';
        out += i + 2 < size ? kAlphabet[n & 63] : '=';
    }
}

std::string formatReal(double d) {
    if (std::isnan(d))
        return "nan";
    if (std::isinf(d))
        return d > 0 ? "+infinity" : "-infinity";
    char text[64];
    const auto result = std::to_chars(text, text + sizeof text, d);
    return std::string(text, result.ptr);
}

// Appends one value as XML at the given indentation. Sets failed for a key that
// cannot be carried.
void appendXml(std::string& out, const PropertyValue& value, int indent, bool& failed) {
    using Type = PropertyValue::Type;
    const std::string tabs(static_cast<std::size_t>(indent), '\t');
    out += tabs;
    switch (value.type()) {
    case Type::Null:
    case Type::Dictionary: {
        const auto* dict = value.asDictionary();
        bool any = false;
        if (dict)
            for (const auto& [key, item] : *dict) {
                if (item.isNull())
                    continue;
                if (!carriableAsText(key)) {
                    failed = true;
                    continue;
                }
                out += any ? "" : "<dict>\n";
                any = true;
                out += tabs + "\t<key>";
                appendEscaped(out, key);
                out += "</key>\n";
                appendXml(out, item, indent + 1, failed);
            }
        out += any ? tabs + "</dict>\n" : "<dict/>\n";
        return;
    }
    case Type::Array: {
        bool any = false;
        for (const auto& item : *value.asArray()) {
            if (item.isNull())
                continue;
            out += any ? "" : "<array>\n";
            any = true;
            appendXml(out, item, indent + 1, failed);
        }
        out += any ? tabs + "</array>\n" : "<array/>\n";
        return;
    }
    case Type::Bool:
        out += *value.asBool() ? "<true/>\n" : "<false/>\n";
        return;
    case Type::Integer: {
        const std::int64_t bits = *value.asInteger();
        out += "<integer>" +
               (value.isUnsignedInteger() ? std::to_string(static_cast<std::uint64_t>(bits))
                                          : std::to_string(bits)) +
               "</integer>\n";
        return;
    }
    case Type::Real:
        out += "<real>" + formatReal(*value.asReal()) + "</real>\n";
        return;
    case Type::Date:
        out += "<date>" + formatXmlDate(value.asDate()->secondsSince1970) + "</date>\n";
        return;
    case Type::String: {
        const std::string& str = *value.asString();
        if (carriableAsText(str)) {
            out += "<string>";
            appendEscaped(out, str);
            out += "</string>\n";
        } else {
            out += "<data>";
            appendBase64(out, reinterpret_cast<const std::uint8_t*>(str.data()), str.size());
            out += "</data>\n";
        }
        return;
    }
    case Type::Data: {
        const auto* data = value.asData();
        out += "<data>";
        appendBase64(out, data->data(), data->size());
        out += "</data>\n";
        return;
    }
    }
}

CVError malformed(const std::string& what) {
    return CVError(kCorvelFileErrorDomain, EINVAL, what);
}

// Whether the value has at most kMaxBinaryWriteNodes nodes, counted without going further.
bool fitsBinaryWriter(const PropertyValue& value) {
    std::uint64_t nodes = 0;
    std::vector<const PropertyValue*> pending{&value};
    while (!pending.empty()) {
        const PropertyValue* node = pending.back();
        pending.pop_back();
        if (++nodes > kMaxBinaryWriteNodes)
            return false;
        if (node->isArray())
            for (const auto& item : *node->asArray())
                pending.push_back(&item);
        else if (node->isDictionary())
            for (const auto& [key, item] : *node->asDictionary())
                pending.push_back(&item);
    }
    return true;
}

// Serialises, answering false when a key cannot be carried or a binary list would be too large.
bool encode(const PropertyValue& value, PropertyListFormat format, std::string& out) {
    bool failed = false;
    if (format == PropertyListFormat::XML) {
        out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
              "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
              "<plist version=\"1.0\">\n";
        appendXml(out, value, 0, failed);
        out += "</plist>\n";
        return !failed;
    }
    if (!fitsBinaryWriter(value))
        return false;
    PlistPtr root(value.isNull() ? plist_new_dict() : toPlist(value, failed));
    char* bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(root.get(), &bytes, &length);
    out.assign(bytes ? bytes : "", length);
    plist_to_bin_free(bytes);
    return !failed;
}

} // namespace

std::uint64_t propertyListNodeLimit(std::size_t bytes) {
    const std::uint64_t scaled = bytes > UINT64_MAX / kPropertyListNodesPerByte
                                     ? UINT64_MAX
                                     : static_cast<std::uint64_t>(bytes) * kPropertyListNodesPerByte;
    return std::max(kMinPropertyListNodeLimit, scaled);
}

int propertyListNestingDepth(std::string_view bytes, int limit) {
    return listShape(bytes, limit).depth;
}

std::uint64_t propertyListNodeCount(std::string_view bytes) {
    const ListShape shape = listShape(bytes, kMaxPropertyListDepth);
    return shape.depth < 0 ? 0 : shape.nodes;
}

bool readPropertyList(std::string_view bytes, PropertyValue& out, CVError* error) {
    // Editors on other systems may start a UTF-8 file with a byte-order mark: it says
    // nothing the XML declaration does not.
    if (bytes.starts_with("\xEF\xBB\xBF"))
        bytes.remove_prefix(3);
    if (bytes.starts_with(std::string_view("\xFF\xFE\0\0", 4)) ||
        bytes.starts_with(std::string_view("\0\0\xFE\xFF", 4))) {
        setError(error, malformed("The property list is written in UTF-32; only UTF-8 is read"));
        return false;
    }
    if (bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF")) {
        setError(error, malformed("The property list is written in UTF-16; only UTF-8 is read"));
        return false;
    }
    if (bytes.empty()) {
        setError(error, malformed("The property list is empty"));
        return false;
    }
    if (bytes.size() > kMaxPropertyListBytes) {
        setError(error, malformed("The property list is larger than " +
                                  std::to_string(kMaxPropertyListBytes) + " bytes"));
        return false;
    }
    const ListShape shape = listShape(bytes, kMaxPropertyListDepth);
    if (shape.depth < 0) {
        setError(error,
                 malformed("The binary property list is damaged (bad trailer, offsets or references)"));
        return false;
    }
    if (shape.depth > kMaxPropertyListDepth) {
        setError(error, malformed("The property list is nested deeper than " +
                                  std::to_string(kMaxPropertyListDepth) + " levels"));
        return false;
    }
    if (shape.nodes > propertyListNodeLimit(bytes.size())) {
        setError(error, malformed("The property list expands to more than " +
                                  std::to_string(propertyListNodeLimit(bytes.size())) +
                                  " nodes (its objects are shared too often)"));
        return false;
    }
    if (shape.holdsNul) {
        setError(error, malformed("The property list holds a string with a NUL character"));
        return false;
    }
    plist_t raw = nullptr;
    plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &raw);
    PlistPtr root(raw);
    if (!root) {
        setError(error, malformed(isBinary(bytes) ? "The binary property list could not be parsed"
                                                  : "The XML property list could not be parsed"));
        return false;
    }
    TextValues text;
    if (!isBinary(bytes)) {
        // The texts line up with libplist's nodes only when both saw the same elements.
        std::size_t dates = 0;
        std::size_t integers = 0;
        countScalars(root.get(), dates, integers);
        if (dates == shape.dates.size())
            text.dates = &shape.dates;
        if (integers == shape.integers)
            text.unsignedIntegers = &shape.unsignedIntegers;
    }
    out = fromPlist(root.get(), text);
    return true;
}

bool readPropertyListFile(const std::string& path, PropertyValue& out, CVError* error) {
    return readPropertyListFile(path, out, RegularFileRead{kMaxPropertyListBytes, true, {}}, error);
}

bool readPropertyListFile(const std::string& path, PropertyValue& out, const RegularFileRead& how,
                          CVError* error) {
    RegularFileRead capped = how;
    if (capped.maxBytes == 0 || capped.maxBytes > kMaxPropertyListBytes)
        capped.maxBytes = kMaxPropertyListBytes;
    std::string bytes;
    if (!readRegularFile(path, bytes, capped, error))
        return false;
    CVError parseError;
    if (!readPropertyList(bytes, out, &parseError)) {
        parseError.userInfo[kLocalizedDescriptionKey] = path + ": " + parseError.localizedDescription();
        parseError.userInfo[kFilePathErrorKey] = path;
        setError(error, std::move(parseError));
        return false;
    }
    return true;
}

std::string propertyListData(const PropertyValue& value, PropertyListFormat format) {
    std::string out;
    if (!encode(value, format, out))
        return {};
    return out;
}

bool writePropertyListFile(const std::string& path, const PropertyValue& value, CVError* error) {
    std::string bytes;
    if (!encode(value, PropertyListFormat::XML, bytes)) {
        setError(error,
                 CVError(kCorvelFileErrorDomain, EILSEQ,
                         path + ": a key of the property list is not valid UTF-8 text; nothing was written"));
        return false;
    }
    return writeFileAtomically(path, bytes, error);
}

} // namespace corvel

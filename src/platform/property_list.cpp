#include "property_list.h"

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
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

// Counts container nesting in an XML list by its tags, skipping comments, CDATA and
// processing instructions, so that hidden closing tags cannot make a deep list look flat.
int xmlDepth(std::string_view s, int limit) {
    int depth = 0;
    int maxDepth = 0;
    std::size_t i = 0;
    while ((i = s.find('<', i)) != std::string_view::npos) {
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
                return maxDepth;
            i = close + end.size();
            continue;
        }
        const bool closing = startsWith(s, i, "</");
        const std::size_t nameAt = i + (closing ? 2 : 1);
        std::size_t nameLen = 0;
        if (startsWith(s, nameAt, "array"))
            nameLen = 5;
        else if (startsWith(s, nameAt, "dict"))
            nameLen = 4;
        const auto tagEnd = s.find('>', i);
        if (tagEnd == std::string_view::npos)
            return maxDepth;
        const char after = nameAt + nameLen < s.size() ? s[nameAt + nameLen] : '\0';
        const bool nameEnds =
            after == '>' || after == '/' || after == ' ' || after == '\t' || after == '\n' || after == '\r';
        if (nameLen > 0 && nameEnds) {
            if (closing) {
                depth = depth > 0 ? depth - 1 : 0;
            } else if (s[tagEnd - 1] != '/') {
                if (++depth > maxDepth)
                    maxDepth = depth;
                if (maxDepth > limit)
                    return maxDepth;
            }
        }
        i = tagEnd + 1;
    }
    return maxDepth;
}

std::uint64_t readBigEndian(std::string_view s, std::size_t at, std::size_t width) {
    std::uint64_t v = 0;
    for (std::size_t k = 0; k < width; ++k)
        v = (v << 8) | static_cast<unsigned char>(s[at + k]);
    return v;
}

// Measures nesting in a binary list by walking its object graph from the top object.
// Every object's height is computed once, so shared objects cost nothing extra; a
// reference cycle counts as unmeasurable (-1).
int binaryDepth(std::string_view s, int limit) {
    if (s.size() < 8 + 32)
        return -1;
    const std::size_t trailer = s.size() - 32;
    const std::size_t offsetSize = static_cast<unsigned char>(s[trailer + 6]);
    const std::size_t refSize = static_cast<unsigned char>(s[trailer + 7]);
    const std::uint64_t numObjects = readBigEndian(s, trailer + 8, 8);
    const std::uint64_t topObject = readBigEndian(s, trailer + 16, 8);
    const std::uint64_t tableOffset = readBigEndian(s, trailer + 24, 8);
    if (offsetSize == 0 || offsetSize > 8 || refSize == 0 || refSize > 8 || topObject >= numObjects ||
        numObjects > s.size() || tableOffset > trailer || (trailer - tableOffset) / offsetSize < numObjects)
        return -1;

    auto objectOffset = [&](std::uint64_t index) {
        return readBigEndian(s, static_cast<std::size_t>(tableOffset + index * offsetSize), offsetSize);
    };
    // Answers the child references of a container object as (first ref position, count), count 0 for scalars.
    auto children = [&](std::uint64_t index, std::size_t& refsAt, std::uint64_t& count) -> bool {
        std::uint64_t at = objectOffset(index);
        if (at >= trailer)
            return false;
        const unsigned char marker = static_cast<unsigned char>(s[at]);
        const unsigned kind = marker >> 4;
        count = 0;
        if (kind != 0xA && kind != 0xC && kind != 0xD)
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
        if (kind == 0xD)
            count *= 2;
        if (count > trailer || at + count * refSize > trailer)
            return false;
        refsAt = static_cast<std::size_t>(at);
        return true;
    };

    std::vector<int> height(static_cast<std::size_t>(numObjects), -2); // -2 unvisited, -1 in progress
    struct Frame {
        std::uint64_t object;
        std::size_t refsAt;
        std::uint64_t count;
        std::uint64_t next;
        int best;
    };
    std::vector<Frame> stack;
    auto push = [&](std::uint64_t object) -> bool {
        Frame f{object, 0, 0, 0, 0};
        if (!children(object, f.refsAt, f.count))
            return false;
        height[object] = -1;
        stack.push_back(f);
        return static_cast<int>(stack.size()) <= limit + 1;
    };
    if (!push(topObject))
        return -1;
    int result = 0;
    while (!stack.empty()) {
        Frame& f = stack.back();
        if (f.next == f.count) {
            const int h = f.count > 0 ? f.best + 1 : 0;
            height[f.object] = h;
            stack.pop_back();
            if (stack.empty())
                result = h;
            else if (h > stack.back().best)
                stack.back().best = h;
            continue;
        }
        const std::uint64_t child = readBigEndian(s, f.refsAt + f.next * refSize, refSize);
        ++f.next;
        if (child >= numObjects || height[child] == -1)
            return -1;
        if (height[child] >= 0) {
            if (height[child] > f.best)
                f.best = height[child];
            continue;
        }
        if (!push(child))
            return static_cast<int>(stack.size()) > limit + 1 ? limit + 1 : -1;
    }
    return result;
}

PropertyValue fromPlist(plist_t node) {
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        std::uint8_t b = 0;
        plist_get_bool_val(node, &b);
        return PropertyValue(b != 0);
    }
    case PLIST_UINT: {
        std::uint64_t v = 0;
        plist_get_uint_val(node, &v);
        // libplist keeps signed and unsigned alike as 64 bits; read them as signed.
        return PropertyValue(static_cast<long long>(v));
    }
    case PLIST_REAL: {
        double d = 0;
        plist_get_real_val(node, &d);
        return PropertyValue(d);
    }
    case PLIST_STRING:
    case PLIST_KEY: {
        char* str = nullptr;
        if (plist_get_node_type(node) == PLIST_KEY)
            plist_get_key_val(node, &str);
        else
            plist_get_string_val(node, &str);
        PropertyValue v(str ? std::string(str) : std::string());
        std::free(str);
        return v;
    }
    case PLIST_DATE: {
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
    case PLIST_ARRAY: {
        PropertyValue::Array array;
        const std::uint32_t n = plist_array_get_size(node);
        array.reserve(n);
        for (std::uint32_t i = 0; i < n; ++i)
            array.push_back(fromPlist(plist_array_get_item(node, i)));
        return PropertyValue(std::move(array));
    }
    case PLIST_DICT: {
        PropertyValue::Dictionary dict;
        plist_dict_iter it = nullptr;
        plist_dict_new_iter(node, &it);
        for (;;) {
            char* key = nullptr;
            plist_t value = nullptr;
            plist_dict_next_item(node, it, &key, &value);
            if (!key)
                break;
            dict.insert_or_assign(std::string(key), fromPlist(value));
            std::free(key);
        }
        std::free(it);
        return PropertyValue(std::move(dict));
    }
    case PLIST_UID: {
        std::uint64_t v = 0;
        plist_get_uid_val(node, &v);
        return PropertyValue(static_cast<long long>(v));
    }
    default:
        return {};
    }
}

plist_t toPlist(const PropertyValue& value) {
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
    case Type::String:
        return plist_new_string(value.asString()->c_str());
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
            if (plist_t child = toPlist(item))
                plist_array_append_item(array, child);
        return array;
    }
    case Type::Dictionary: {
        plist_t dict = plist_new_dict();
        for (const auto& [key, item] : *value.asDictionary())
            if (plist_t child = toPlist(item))
                plist_dict_set_item(dict, key.c_str(), child);
        return dict;
    }
    }
    return nullptr;
}

CVError malformed(const std::string& what) {
    return CVError(kCorvelFileErrorDomain, EINVAL, what);
}

} // namespace

int propertyListNestingDepth(std::string_view bytes, int limit) {
    return isBinary(bytes) ? binaryDepth(bytes, limit) : xmlDepth(bytes, limit);
}

bool readPropertyList(std::string_view bytes, PropertyValue& out, CVError* error) {
    if (bytes.empty()) {
        setError(error, malformed("The property list is empty"));
        return false;
    }
    if (bytes.size() > kMaxPropertyListBytes) {
        setError(error, malformed("The property list is larger than " +
                                  std::to_string(kMaxPropertyListBytes) + " bytes"));
        return false;
    }
    const int depth = propertyListNestingDepth(bytes, kMaxPropertyListDepth);
    if (depth < 0) {
        setError(error,
                 malformed("The binary property list is damaged (bad trailer, offsets or references)"));
        return false;
    }
    if (depth > kMaxPropertyListDepth) {
        setError(error, malformed("The property list is nested deeper than " +
                                  std::to_string(kMaxPropertyListDepth) + " levels"));
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
    out = fromPlist(root.get());
    return true;
}

bool readPropertyListFile(const std::string& path, PropertyValue& out, CVError* error) {
    std::string bytes;
    if (!readFileContents(path, bytes, kMaxPropertyListBytes, error))
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
    PlistPtr root(value.isNull() ? plist_new_dict() : toPlist(value));
    char* bytes = nullptr;
    std::uint32_t length = 0;
    if (format == PropertyListFormat::XML) {
        plist_to_xml(root.get(), &bytes, &length);
        std::string out(bytes ? bytes : "", length);
        plist_to_xml_free(bytes);
        return out;
    }
    plist_to_bin(root.get(), &bytes, &length);
    std::string out(bytes ? bytes : "", length);
    plist_to_bin_free(bytes);
    return out;
}

bool writePropertyListFile(const std::string& path, const PropertyValue& value, CVError* error) {
    return writeFileAtomically(path, propertyListData(value, PropertyListFormat::XML), error);
}

} // namespace corvel

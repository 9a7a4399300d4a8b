#include "property_value.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <sstream>

namespace corvel {

namespace {

bool parseBoolString(const std::string& s) {
    // A string is true when it says so or starts with a non-zero number.
    if (s.empty())
        return false;
    const char c = s[0];
    if (c == 'Y' || c == 'y' || c == 'T' || c == 't')
        return true;
    return std::strtoll(s.c_str(), nullptr, 10) != 0;
}

} // namespace

const PropertyValue& PropertyValue::null() {
    static const PropertyValue value;
    return value;
}

bool PropertyValue::isUnsignedInteger() const {
    const auto* i = std::get_if<Integer>(&m_value);
    return i && i->isUnsigned;
}

std::optional<bool> PropertyValue::asBool() const {
    if (const auto* b = std::get_if<bool>(&m_value))
        return *b;
    return std::nullopt;
}

std::optional<std::int64_t> PropertyValue::asInteger() const {
    if (const auto* i = std::get_if<Integer>(&m_value))
        return i->bits;
    return std::nullopt;
}

std::optional<double> PropertyValue::asReal() const {
    if (const auto* d = std::get_if<double>(&m_value))
        return *d;
    return std::nullopt;
}

const std::string* PropertyValue::asString() const {
    return std::get_if<std::string>(&m_value);
}

std::optional<PropertyDate> PropertyValue::asDate() const {
    if (const auto* d = std::get_if<PropertyDate>(&m_value))
        return *d;
    return std::nullopt;
}

const PropertyValue::Data* PropertyValue::asData() const {
    const auto* p = std::get_if<std::shared_ptr<const Data>>(&m_value);
    return p ? p->get() : nullptr;
}

const PropertyValue::Array* PropertyValue::asArray() const {
    const auto* p = std::get_if<std::shared_ptr<const Array>>(&m_value);
    return p ? p->get() : nullptr;
}

const PropertyValue::Dictionary* PropertyValue::asDictionary() const {
    const auto* p = std::get_if<std::shared_ptr<const Dictionary>>(&m_value);
    return p ? p->get() : nullptr;
}

bool PropertyValue::toBool() const {
    switch (type()) {
    case Type::Bool:
        return std::get<bool>(m_value);
    case Type::Integer:
        return std::get<Integer>(m_value).bits != 0;
    case Type::Real:
        return std::get<double>(m_value) != 0.0;
    case Type::String:
        return parseBoolString(std::get<std::string>(m_value));
    default:
        return false;
    }
}

std::int64_t PropertyValue::toInt64() const {
    switch (type()) {
    case Type::Bool:
        return std::get<bool>(m_value) ? 1 : 0;
    case Type::Integer:
        return std::get<Integer>(m_value).bits;
    case Type::Real: {
        const double d = std::get<double>(m_value);
        if (std::isnan(d))
            return 0;
        if (d >= 9.2233720368547758e18)
            return INT64_MAX;
        if (d <= -9.2233720368547758e18)
            return INT64_MIN;
        return static_cast<std::int64_t>(d);
    }
    case Type::String: {
        const auto& s = std::get<std::string>(m_value);
        errno = 0;
        const long long v = std::strtoll(s.c_str(), nullptr, 10);
        return errno == 0 ? v : (s.find('-') != std::string::npos ? INT64_MIN : INT64_MAX);
    }
    default:
        return 0;
    }
}

std::uint64_t PropertyValue::toUInt64() const {
    switch (type()) {
    case Type::Integer:
        return static_cast<std::uint64_t>(std::get<Integer>(m_value).bits);
    case Type::Real: {
        const double d = std::get<double>(m_value);
        if (!(d > 0))
            return 0;
        if (d >= 1.8446744073709552e19)
            return UINT64_MAX;
        return static_cast<std::uint64_t>(d);
    }
    case Type::String:
        return std::strtoull(std::get<std::string>(m_value).c_str(), nullptr, 10);
    default:
        return static_cast<std::uint64_t>(toInt64());
    }
}

double PropertyValue::toDouble() const {
    switch (type()) {
    case Type::Real:
        return std::get<double>(m_value);
    case Type::Integer: {
        const auto& i = std::get<Integer>(m_value);
        return i.isUnsigned ? static_cast<double>(static_cast<std::uint64_t>(i.bits))
                            : static_cast<double>(i.bits);
    }
    case Type::String:
        return std::strtod(std::get<std::string>(m_value).c_str(), nullptr);
    case Type::Date:
        return std::get<PropertyDate>(m_value).secondsSince1970;
    default:
        return static_cast<double>(toInt64());
    }
}

std::string PropertyValue::toString() const {
    switch (type()) {
    case Type::String:
        return std::get<std::string>(m_value);
    case Type::Bool:
        return std::get<bool>(m_value) ? "1" : "0";
    case Type::Integer: {
        const auto& i = std::get<Integer>(m_value);
        return i.isUnsigned ? std::to_string(static_cast<std::uint64_t>(i.bits)) : std::to_string(i.bits);
    }
    case Type::Real: {
        std::ostringstream out;
        out.precision(17);
        out << std::get<double>(m_value);
        return out.str();
    }
    default:
        return {};
    }
}

std::size_t PropertyValue::count() const {
    switch (type()) {
    case Type::Array:
        return asArray()->size();
    case Type::Dictionary:
        return asDictionary()->size();
    case Type::Data:
        return asData()->size();
    case Type::String:
        return asString()->size();
    default:
        return 0;
    }
}

const PropertyValue& PropertyValue::operator[](std::string_view key) const {
    if (const auto* dict = asDictionary()) {
        auto it = dict->find(key);
        if (it != dict->end())
            return it->second;
    }
    return null();
}

const PropertyValue& PropertyValue::operator[](std::size_t index) const {
    if (const auto* array = asArray(); array && index < array->size())
        return (*array)[index];
    return null();
}

PropertyValue::Array& PropertyValue::mutableArray() {
    auto* p = std::get_if<std::shared_ptr<const Array>>(&m_value);
    if (!p) {
        m_value = std::make_shared<const Array>();
        p = std::get_if<std::shared_ptr<const Array>>(&m_value);
    } else if (p->use_count() > 1) {
        *p = std::make_shared<const Array>(**p);
    }
    // The storage is exclusively ours now; constness only guards sharing.
    return const_cast<Array&>(**p);
}

PropertyValue::Dictionary& PropertyValue::mutableDictionary() {
    auto* p = std::get_if<std::shared_ptr<const Dictionary>>(&m_value);
    if (!p) {
        m_value = std::make_shared<const Dictionary>();
        p = std::get_if<std::shared_ptr<const Dictionary>>(&m_value);
    } else if (p->use_count() > 1) {
        *p = std::make_shared<const Dictionary>(**p);
    }
    return const_cast<Dictionary&>(**p);
}

bool operator==(const PropertyValue& a, const PropertyValue& b) {
    using Type = PropertyValue::Type;
    if (a.isNumber() && b.isNumber()) {
        if (a.type() == Type::Real || b.type() == Type::Real)
            return a.toDouble() == b.toDouble();
        return a.toUInt64() == b.toUInt64() && a.isUnsignedInteger() == b.isUnsignedInteger();
    }
    if (a.type() != b.type())
        return false;
    switch (a.type()) {
    case Type::Null:
        return true;
    case Type::String:
        return *a.asString() == *b.asString();
    case Type::Date:
        return *a.asDate() == *b.asDate();
    case Type::Data:
        return *a.asData() == *b.asData();
    case Type::Array:
        return *a.asArray() == *b.asArray();
    case Type::Dictionary:
        return *a.asDictionary() == *b.asDictionary();
    default:
        return false;
    }
}

std::string PropertyValue::description() const {
    switch (type()) {
    case Type::Null:
        return "(null)";
    case Type::Bool:
        return *asBool() ? "YES" : "NO";
    case Type::Integer:
    case Type::Real:
        return toString();
    case Type::String:
        return '"' + *asString() + '"';
    case Type::Date:
        return "<date " + std::to_string(asDate()->secondsSince1970) + ">";
    case Type::Data:
        return "<" + std::to_string(asData()->size()) + " bytes>";
    case Type::Array: {
        std::string out = "(";
        const char* sep = "";
        for (const auto& v : *asArray()) {
            out += sep;
            out += v.description();
            sep = ", ";
        }
        return out + ")";
    }
    case Type::Dictionary: {
        std::string out = "{";
        const char* sep = "";
        for (const auto& [k, v] : *asDictionary()) {
            out += sep;
            out += k;
            out += " = ";
            out += v.description();
            sep = "; ";
        }
        return out + "}";
    }
    }
    return {};
}

std::optional<std::string> PropertyValue::textOrBytes() const {
    if (const std::string* text = asString())
        return *text;
    if (const Data* bytes = asData())
        return std::string(bytes->begin(), bytes->end());
    return std::nullopt;
}

} // namespace corvel

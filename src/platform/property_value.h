#pragma once
// PropertyValue: the one dynamic value type of the system. It stands for the
// dictionaries and arrays that are stored in the settings file, in library records
// and in notification user info. Arrays and dictionaries share their storage between
// copies and are copied on first write, so passing values around is cheap.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace corvel {

// A point in time as seconds since 1970-01-01 UTC (property lists count from 2001; the
// conversion happens at the file boundary).
struct PropertyDate {
    double secondsSince1970 = 0;
    friend bool operator==(const PropertyDate&, const PropertyDate&) = default;
};

class PropertyValue {
public:
    enum class Type { Null, Bool, Integer, Real, String, Date, Data, Array, Dictionary };
    using Array = std::vector<PropertyValue>;
    using Dictionary = std::map<std::string, PropertyValue, std::less<>>;
    using Data = std::vector<std::uint8_t>;

    PropertyValue() = default;
    PropertyValue(std::nullptr_t) {}
    PropertyValue(bool value) : m_value(value) {}
    PropertyValue(int value) : m_value(Integer{value, false}) {}
    PropertyValue(long value) : m_value(Integer{value, false}) {}
    PropertyValue(long long value) : m_value(Integer{value, false}) {}
    PropertyValue(unsigned value) : m_value(Integer{static_cast<std::int64_t>(value), false}) {}
    PropertyValue(unsigned long value) : PropertyValue(static_cast<unsigned long long>(value)) {}
    // Values above INT64_MAX keep their bits and remember that they are unsigned.
    PropertyValue(unsigned long long value)
        : m_value(Integer{static_cast<std::int64_t>(value), value > INT64_MAX}) {}
    PropertyValue(double value) : m_value(value) {}
    PropertyValue(std::string value) : m_value(std::move(value)) {}
    PropertyValue(std::string_view value) : m_value(std::string(value)) {}
    PropertyValue(const char* value) : m_value(std::string(value)) {}
    PropertyValue(PropertyDate value) : m_value(value) {}
    PropertyValue(Data value) : m_value(std::make_shared<const Data>(std::move(value))) {}
    PropertyValue(Array value) : m_value(std::make_shared<const Array>(std::move(value))) {}
    PropertyValue(Dictionary value) : m_value(std::make_shared<const Dictionary>(std::move(value))) {}

    // A shared null value, for answers by reference.
    static const PropertyValue& null();

    Type type() const { return static_cast<Type>(m_value.index()); }
    bool isNull() const { return type() == Type::Null; }
    bool isNumber() const { return type() == Type::Bool || type() == Type::Integer || type() == Type::Real; }
    bool isString() const { return type() == Type::String; }
    bool isArray() const { return type() == Type::Array; }
    bool isDictionary() const { return type() == Type::Dictionary; }
    // True for an integer stored from an unsigned value above INT64_MAX.
    bool isUnsignedInteger() const;

    // Exact accessors: the value when it has that type, otherwise nothing.
    std::optional<bool> asBool() const;
    std::optional<std::int64_t> asInteger() const;
    std::optional<double> asReal() const;
    const std::string* asString() const;
    std::optional<PropertyDate> asDate() const;
    const Data* asData() const;
    // A string's text, or the bytes of data: paths that are not valid UTF-8 are stored as
    // data. Nothing for other types.
    std::optional<std::string> textOrBytes() const;
    const Array* asArray() const;
    const Dictionary* asDictionary() const;

    // Lenient conversions as a settings store answers them: numbers convert between each
    // other, strings are parsed ("YES", "true", "42", "1.5"), anything else gives 0 / false.
    bool toBool() const;
    std::int64_t toInt64() const;
    std::uint64_t toUInt64() const;
    double toDouble() const;
    // The string itself, or a number written in decimal; empty for other types.
    std::string toString() const;

    // Element count of an array or dictionary, byte count of data and strings, 0 otherwise.
    std::size_t count() const;
    // Dictionary member by key, or array element by index; a null value when absent.
    const PropertyValue& operator[](std::string_view key) const;
    const PropertyValue& operator[](std::size_t index) const;

    // Mutable access; converts a non-matching value into an empty container first and
    // unshares storage that other copies still hold.
    Array& mutableArray();
    Dictionary& mutableDictionary();
    void set(std::string_view key, PropertyValue value) {
        mutableDictionary()[std::string(key)] = std::move(value);
    }
    void append(PropertyValue value) { mutableArray().push_back(std::move(value)); }

    // Deep equality; an integer and a real with the same numeric value are equal, as are
    // a boolean and the integer 0 or 1.
    friend bool operator==(const PropertyValue& a, const PropertyValue& b);

    // A short readable form for logs and test failures.
    std::string description() const;

private:
    struct Integer {
        std::int64_t bits;
        bool isUnsigned;
    };
    std::variant<std::monostate, bool, Integer, double, std::string, PropertyDate,
                 std::shared_ptr<const Data>, std::shared_ptr<const Array>, std::shared_ptr<const Dictionary>>
        m_value;
};

} // namespace corvel

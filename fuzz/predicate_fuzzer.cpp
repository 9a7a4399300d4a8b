// Parses bytes as a predicate format; one that parses is evaluated against a small
// dictionary.

#include <cstdint>
#include <string_view>

#include "platform/predicate.h"

using namespace corvel;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view format(reinterpret_cast<const char*>(data), size);
    CVError error;
    const auto predicate = Predicate::parse(format, &error);
    if (!predicate)
        return 0;
    static const PropertyValue object(PropertyValue::Dictionary{
        {"a", PropertyValue(PropertyValue::Array{PropertyValue(1), PropertyValue("x")})},
        {"name", PropertyValue("Caf\xC3\xA9")},
        {"size", PropertyValue(42)}});
    (void)predicate->evaluate(object);
    return 0;
}

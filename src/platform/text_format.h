#pragma once
// formatString: the system's printf-style format strings over dynamic values.
// Supported: %@ (a value as text: strings as they are, numbers in decimal, containers
// described), %d %i %ld %lld %li (signed), %u %lu %llu (unsigned), %x %X %o, %f %e %g
// with flags, width and precision (%3.2f), %c, %s, %% and positional forms (%1$@, %2$lu).
// A missing argument formats as the empty string; a malformed specifier is copied as is.

#include <span>
#include <string>
#include <string_view>

#include "property_value.h"

namespace corvel {

std::string formatString(std::string_view format, std::span<const PropertyValue> args);

template <typename... Args> std::string formatf(std::string_view format, const Args&... args) {
    const PropertyValue values[] = {PropertyValue(args)..., PropertyValue()};
    return formatString(format, std::span<const PropertyValue>(values, sizeof...(Args)));
}

} // namespace corvel

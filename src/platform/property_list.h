#pragma once
// Property-list files: XML and binary lists are read, XML (and, for tests and tools,
// binary) lists are written. Parsing is done by libplist; this layer converts to and
// from PropertyValue and guards what libplist cannot survive: input nested deeper than
// kMaxPropertyListDepth or larger than kMaxPropertyListBytes is refused before parsing.

#include <cstddef>
#include <string>
#include <string_view>

#include "error.h"
#include "property_value.h"

namespace corvel {

// Large enough for the biggest music library description files seen in the wild.
inline constexpr std::size_t kMaxPropertyListBytes = std::size_t{512} << 20;
// Far deeper than any real list; deep enough nesting overflows libplist's recursion.
inline constexpr int kMaxPropertyListDepth = 512;

enum class PropertyListFormat { XML, Binary };

// Parses an XML or binary property list. On failure answers false and sets *error
// (domain kCorvelFileErrorDomain) with a message that says what was wrong; *out is
// left unchanged. Thread-safe.
bool readPropertyList(std::string_view bytes, PropertyValue& out, CVError* error);
bool readPropertyListFile(const std::string& path, PropertyValue& out, CVError* error);

// Serialises a value. Null values inside containers are left out (property lists have
// no null); a null top-level value serialises as an empty dictionary. Dates before
// 1901 or after 2038 are clamped (libplist keeps 32-bit seconds).
std::string propertyListData(const PropertyValue& value, PropertyListFormat format);

// Writes the value as an XML property list, atomically (see writeFileAtomically).
bool writePropertyListFile(const std::string& path, const PropertyValue& value, CVError* error);

// The depth of the deepest container in the list (0 for a scalar), or -1 when the
// structure is too malformed to measure. Exposed for tests.
int propertyListNestingDepth(std::string_view bytes, int limit);

} // namespace corvel

#pragma once
// Property-list files: XML and binary lists are read, XML (and, for tests and tools,
// binary) lists are written. Parsing is done by libplist; this layer converts to and
// from PropertyValue and guards what libplist cannot survive: input nested deeper than
// kMaxPropertyListDepth, larger than kMaxPropertyListBytes, expanding to more nodes than
// propertyListNodeLimit() or holding a NUL character in a string or key is refused
// before parsing. XML dates, and whether an integer was written above INT64_MAX, are
// taken from the document's own text, so dates of the years 1 to 9999 with their
// fractional seconds and unsigned 64-bit integers come back exactly. XML is written by
// this layer, not by libplist.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "error.h"
#include "file_io.h"
#include "property_value.h"

namespace corvel {

// Large enough for the biggest music library description files seen in the wild.
inline constexpr std::size_t kMaxPropertyListBytes = std::size_t{512} << 20;
// Far deeper than any real list; deep enough nesting overflows libplist's recursion.
inline constexpr int kMaxPropertyListDepth = 512;

// A binary list may share objects, so its expanded node count can grow exponentially with
// its size. A list is refused when it expands to more nodes than
// max(kMinPropertyListNodeLimit, kPropertyListNodesPerByte * its size in bytes); an
// honest list (an XML one, or a binary one whose sharing is only of repeated strings and
// numbers) stays far below that: XML needs several bytes per value, and a binary list
// at least one reference byte per value it holds.
inline constexpr std::uint64_t kMinPropertyListNodeLimit = 100'000;
inline constexpr std::uint64_t kPropertyListNodesPerByte = 4;
std::uint64_t propertyListNodeLimit(std::size_t bytes);

enum class PropertyListFormat { XML, Binary };

// Parses an XML or binary property list. On failure answers false and sets *error
// (domain kCorvelFileErrorDomain) with a message that says what was wrong; *out is
// left unchanged. Thread-safe.
[[nodiscard]] bool readPropertyList(std::string_view bytes, PropertyValue& out, CVError* error);
// The file at path, links followed, read as readFileContents reads it (a regular file
// of at most kMaxPropertyListBytes).
[[nodiscard]] bool readPropertyListFile(const std::string& path, PropertyValue& out, CVError* error);
// The file read as readRegularFile reads it with how (its maxBytes is capped at
// kMaxPropertyListBytes; zero means that cap).
[[nodiscard]] bool readPropertyListFile(const std::string& path, PropertyValue& out,
                                        const RegularFileRead& how, CVError* error);

// Serialises a value. Null values inside containers are left out (property lists have
// no null); a null top-level value serialises as an empty dictionary. A string that is
// not valid UTF-8 or holds a character XML 1.0 cannot carry (NUL, control characters
// other than tab, line feed and carriage return, U+FFFE, U+FFFF) is written as data
// with its bytes. XML dates are written with the fewest fraction digits (up to nine)
// that read back as the same value and are clamped to the years 1 to 9999; binary dates
// before 1932 or after 2069 are clamped (libplist keeps 32-bit seconds from 2001). A dictionary key that
// cannot be carried (it cannot be written as data) makes the answer empty. So does a
// binary list of more than kMaxBinaryWriteNodes values: libplist's binary writer slows
// down far more than linearly on large trees (a million values took 15 s where the XML
// writer takes 0.3 s), and nothing needs binary lists that large.
inline constexpr std::uint64_t kMaxBinaryWriteNodes = 100'000;
std::string propertyListData(const PropertyValue& value, PropertyListFormat format);

// Writes the value as an XML property list, atomically (see writeFileAtomically). A
// dictionary key that a list cannot carry answers false with an error and leaves the
// file as it was.
[[nodiscard]] bool writePropertyListFile(const std::string& path, const PropertyValue& value, CVError* error);

// The depth of the deepest container in the list (0 for a scalar), or -1 when the
// structure is too malformed to measure. Exposed for tests.
int propertyListNestingDepth(std::string_view bytes, int limit);
// The number of nodes the list expands to (every reference to a shared object counts),
// saturating at UINT64_MAX; 0 when the structure is too malformed to measure. XML lists
// share nothing: their count is their element count. Exposed for tests.
std::uint64_t propertyListNodeCount(std::string_view bytes);

} // namespace corvel

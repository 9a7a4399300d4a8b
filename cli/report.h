#pragma once
// What the command line prints of the results: one JSON document, or plain text.

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "json_writer.h"

namespace corvel {
class CVDuplicatesController;
struct IncompleteFolder;
struct UnreadFile;
} // namespace corvel

namespace corvel::cli {

// Sizes for a terminal: the display string with a plain space before the unit.
std::string plainSpaces(std::string text);
std::string sizeText(std::uint64_t bytes);
// Text as a terminal may show it: every byte below 0x20 and 0x7F, the C1 controls
// U+0080 to U+009F, and every byte that is not part of a valid UTF-8 character, as
// "\n", "\t", "\r" or "\xHH" per byte, and a backslash as "\\", so an escape sequence
// in a file name is never acted on, a path stays on one line and what is shown tells
// the bytes apart. Valid characters are passed as they are.
std::string escapedForTerminal(std::string_view text);

// The line every command prints for a settings file that holds no settings and is left
// as it is: "corvel: [NAMED_BY: ]PATH is not a settings file (WHY); it was left as it is",
// NAMED_BY being how the user named it ("--settings", "CORVEL_SETTINGS"; empty: the
// default file).
std::string notASettingsFileLine(std::string_view namedBy, const std::string& path, const std::string& why);

// What a scan could not read, for stderr: "corvel: cannot read PATH: REASON" for the
// folders its walk could not read completely (PATH: the folder it could not list, or the
// first entry in it that could not be looked at), then for the files whose content could not
// be read (files: those kept by name; filesCount: all of them), at most shown lines in
// all, then "corvel: and N more could not be read" counting both kinds. Empty when
// nothing was left unread.
inline constexpr std::size_t kUnreadShown = 20;
std::string unreadReport(const std::vector<IncompleteFolder>& folders, const std::vector<UnreadFile>& files,
                         std::uint64_t filesCount, std::size_t shown = kUnreadShown);

// The JSON document: roots, groups (members with their identity: device, inode and
// modification time in nanoseconds), summary; extra, when given, writes more members
// (the removal) before the document closes. Written to out as it grows.
void writeJsonReport(const std::vector<std::string>& roots, CVDuplicatesController& results, std::FILE* out,
                     const std::function<void(JsonWriter&)>& extra = {});

// The groups as text, each with its members (paths escaped for the terminal), and the
// closing summary line.
std::string textReport(CVDuplicatesController& results);

// The groups as CSV (RFC 4180: a header line, CRLF line ends, fields with a comma, a
// quote or a line break quoted with quotes doubled): one row per member with its
// group's number (from 1), category, size, size on disk, whether it is selected,
// whether it is a hard link of a member above it, and its path (bytes as they are).
std::string csvReport(CVDuplicatesController& results);

// The groups of files as fdupes prints them: each member's path on its own line, groups
// separated by an empty line. Groups of copied folders are left out (fdupes lists files).
std::string fdupesReport(CVDuplicatesController& results);
std::size_t folderGroupsCount(CVDuplicatesController& results);

// Whether --export may write its list at path: a missing file in an existing folder, an
// empty file, or one that already holds a list of absolute paths (an earlier export).
// Anything else is someone's file, perhaps one of the scanned copies, or a typing
// mistake: *why says so.
[[nodiscard]] bool mayWriteExportTo(const std::string& path, std::string* why);

} // namespace corvel::cli

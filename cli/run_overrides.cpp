#include "run_overrides.h"

#include <climits>
#include <cstdlib>
#include <sys/stat.h>

#include "platform/file_io.h"
#include "platform/text.h"
#include "platform/user_defaults.h"
#include "report.h"
#include "scan/duplicates_locator.h"
#include "selection/autoselect_lists.h"
#include "settings/ignore_list.h"

namespace corvel::cli {

namespace {

constexpr std::string_view kRegexSpecials = "\\^$.|+(){}";
constexpr std::size_t kMaxGlobFileBytes = std::size_t{16} << 20;

std::string lowercaseAscii(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return out;
}

// The globs of an --exclude-from file: one per line, blank lines and "#" comments skipped.
[[nodiscard]] bool readGlobs(const std::string& path, std::vector<std::string>& globs, std::string* message) {
    std::string text;
    CVError error;
    if (!readFileContents(path, text, kMaxGlobFileBytes, &error)) {
        *message = "--exclude-from: " + escapedForTerminal(error.localizedDescription());
        return false;
    }
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        std::string line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (!line.empty() && line[0] != '#')
            globs.push_back(line);
        start = end + 1;
    }
    return true;
}

[[nodiscard]] bool selectItems(const std::vector<std::string>& folders, std::int32_t category,
                               std::vector<CVAutoselectListItem>& items, std::string* message) {
    for (const auto& folder : folders) {
        struct stat st {};
        if (::stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
            *message = std::string(category == kAlwaysSelect ? "--always-select" : "--never-select") + ": " +
                       escapedForTerminal(folder) + " is not a folder";
            return false;
        }
        items.push_back(CVAutoselectListItem::autoselectItemWithPath(folder, category));
    }
    return true;
}

} // namespace

std::string globToIgnorePattern(std::string_view glob) {
    const std::string lower = lowercaseAscii(glob);
    std::string body;
    for (std::size_t i = 0; i < lower.size(); ++i) {
        const char c = lower[i];
        if (c == '*' && i + 1 < lower.size() && lower[i + 1] == '*') {
            body += ".*";
            ++i;
        } else if (c == '*') {
            body += "[^/]*";
        } else if (c == '?') {
            body += "[^/]";
        } else if (c == '[' && lower.find(']', i + 2) != std::string::npos) {
            const std::size_t close = lower.find(']', i + 2);
            std::string inside = lower.substr(i + 1, close - i - 1);
            if (inside[0] == '!')
                inside[0] = '^';
            for (std::size_t at = 0; (at = inside.find('\\', at)) != std::string::npos; at += 2)
                inside.insert(at, "\\");
            body += "[" + inside + "]";
            i = close;
        } else {
            if (kRegexSpecials.find(c) != std::string_view::npos || c == '[' || c == ']')
                body += '\\';
            body += c;
        }
    }
    const bool anchored = !lower.empty() && lower[0] == '/';
    return (anchored ? "^" : "(^|/)") + body + "$";
}

bool applyRunOverrides(const RunOverrides& overrides, UserDefaults& defaults, std::string* message) {
    std::vector<std::string> globs = overrides.excludes;
    if (!overrides.excludeFrom.empty() && !readGlobs(overrides.excludeFrom, globs, message))
        return false;
    std::vector<CVAutoselectListItem> added;
    if (!selectItems(overrides.alwaysSelect, kAlwaysSelect, added, message) ||
        !selectItems(overrides.neverSelect, kNeverSelect, added, message))
        return false;

    if (!globs.empty()) {
        std::string pattern = defaults.stringForKey(kIgnoreRegexpStringKey).value_or("");
        for (const auto& glob : globs) {
            const std::string part = globToIgnorePattern(glob);
            CVError error;
            if (!RegularExpression::compile(part, &error)) {
                *message = "--exclude: " + glob + " is not a pattern Corvel can use (" +
                           error.localizedDescription() + ")";
                return false;
            }
            pattern = pattern.empty() ? "(" + part + ")" : pattern + "|(" + part + ")";
        }
        defaults.setVolatileObject(pattern, kIgnoreRegexpStringKey);
    }
    if (!added.empty()) {
        // The folders of this run come first and replace stored entries of the same folder.
        PropertyValue::Array list;
        for (const auto& item : added)
            list.push_back(item.userDefaultValue());
        for (const auto& stored : CVAutoselectLists(defaults).list()) {
            const bool replaced =
                std::any_of(added.begin(), added.end(), [&](const CVAutoselectListItem& item) {
                    return sameAutoselectFolder(item.path, stored.path);
                });
            if (!replaced)
                list.push_back(stored.userDefaultValue());
        }
        defaults.setVolatileObject(PropertyValue(std::move(list)), kAutoselectListKey);
    }
    if (overrides.showUnremovable)
        defaults.setVolatileObject(true, kShowFilesWithNoPermissionsKey);
    return true;
}

} // namespace corvel::cli

#include "report.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>
#include <unicode/utf8.h>

#include "engine/file_sizer.h"
#include "engine/folder.h"
#include "platform/file_io.h"
#include "results/duplicates_controller.h"
#include "results/meta_group.h"
#include "scan/files_hierarchy.h"
#include "scan/unread_files.h"
#include "summary.h"

namespace corvel::cli {

// An earlier export is read to tell it from someone's file; a longer file is not one.
constexpr std::size_t kMaxExportBytesChecked = std::size_t{256} << 20;

std::string plainSpaces(std::string text) {
    // Sizes carry a no-break space between number and unit; a terminal wants a plain one.
    for (std::size_t at; (at = text.find("\xC2\xA0")) != std::string::npos;)
        text.replace(at, 2, " ");
    return text;
}

std::string sizeText(std::uint64_t bytes) {
    return plainSpaces(HVFileSizer::displayItemSizeFromSize(bytes));
}

std::string unreadReport(const std::vector<IncompleteFolder>& folders, const std::vector<UnreadFile>& files,
                         std::uint64_t filesCount, std::size_t shown) {
    std::string text;
    std::size_t lines = 0;
    const auto name = [&](const std::string& path, const std::string& reason) {
        if (lines == shown)
            return;
        ++lines;
        text += "corvel: cannot read " + escapedForTerminal(path) + ": " + reason + "\n";
    };
    for (const auto& folder : folders)
        name(folder.entry.empty() ? folder.path : folder.entry, folder.reason);
    for (const auto& file : files)
        name(file.path, file.reason);
    const std::uint64_t total = folders.size() + std::max<std::uint64_t>(filesCount, files.size());
    if (total > lines)
        text += "corvel: and " + std::to_string(total - lines) + " more could not be read\n";
    return text;
}

std::string escapedForTerminal(std::string_view text) {
    static constexpr char kHex[] = "0123456789abcdef";
    std::string out;
    out.reserve(text.size());
    const auto hex = [&](unsigned char byte) {
        out += "\\x";
        out += kHex[byte >> 4];
        out += kHex[byte & 0xF];
    };
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte == '\n') {
            out += "\\n";
        } else if (byte == '\t') {
            out += "\\t";
        } else if (byte == '\r') {
            out += "\\r";
        } else if (byte == '\\') {
            out += "\\\\";
        } else if (byte < 0x20 || byte == 0x7F) {
            hex(byte);
        } else if (byte < 0x80) {
            out += text[i];
        } else {
            // A whole UTF-8 character stays as it is, unless it is a C1 control; a byte
            // that starts no valid character (a Latin-1 name) is shown as its value, as a
            // terminal would show it as a replacement mark that tells nothing apart.
            const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
            const auto length = static_cast<std::int32_t>(text.size());
            auto next = static_cast<std::int32_t>(i);
            UChar32 c = 0;
            U8_NEXT(bytes, next, length, c);
            if (c < 0) {
                hex(byte);
            } else if (c >= 0x80 && c <= 0x9F) {
                for (std::size_t k = i; k < static_cast<std::size_t>(next); ++k)
                    hex(static_cast<unsigned char>(text[k]));
                i = static_cast<std::size_t>(next) - 1;
            } else {
                out.append(text.substr(i, static_cast<std::size_t>(next) - i));
                i = static_cast<std::size_t>(next) - 1;
            }
        }
    }
    return out;
}

std::string notASettingsFileLine(std::string_view namedBy, const std::string& path, const std::string& why) {
    return "corvel: " + (namedBy.empty() ? std::string() : std::string(namedBy) + ": ") +
           escapedForTerminal(path) + " is not a settings file (" + escapedForTerminal(why) +
           "); it was left as it is\n";
}

namespace {

void writeJsonFile(JsonWriter& json, const CVFile& file) {
    json.beginObject();
    json.key("path");
    json.value(file.path());
    json.key("isFolder");
    json.value(dynamic_cast<const CVFolder*>(&file) != nullptr);
    json.key("size");
    json.value(file.size());
    json.key("sizeOnDisk");
    json.value(file.sizeOnDisk());
    json.key("removeForbidden");
    json.value(file.removeForbidden());
    json.key("needToRemove");
    json.value(file.needToRemove());
    json.key("selectionType");
    json.value(CVFile::stringSelectionType(file.selectionType()));
    json.key("device");
    json.value(file.device());
    json.key("inode");
    json.value(file.inodeNumber());
    json.key("mtime");
    json.value(file.statMTimeNanoseconds());
    json.endObject();
}

void writeJsonGroup(JsonWriter& json, const CVGroup& group) {
    json.beginObject();
    json.key("category");
    json.value(CVMetaGroup::stringType(group.metaGroupType()));
    json.key("categoryId");
    json.value(group.metaGroupType());
    json.key("nodeType");
    json.value(group.type());
    json.key("size");
    json.value(group.size());
    json.key("totalSize");
    json.value(group.totalSize());
    json.key("verified");
    json.value(group.isVerified());
    json.key("files");
    json.beginArray();
    for (const auto& child : group.children())
        if (const auto* file = dynamic_cast<const CVFile*>(child.get()))
            writeJsonFile(json, *file);
    json.endArray();
    json.endObject();
}

void writeJsonSummary(JsonWriter& json, const ResultsSummary& summary) {
    json.key("summary");
    json.beginObject();
    json.key("groups");
    json.value(summary.groups);
    json.key("files");
    json.value(summary.files);
    json.key("size");
    json.value(summary.size);
    json.key("reclaimable");
    json.value(summary.reclaimable);
    json.key("selectedFiles");
    json.value(summary.selectedFiles);
    json.key("selectedSize");
    json.value(summary.selected);
    json.endObject();
}

} // namespace

void writeJsonReport(const std::vector<std::string>& roots, CVDuplicatesController& results, std::FILE* out,
                     const std::function<void(JsonWriter&)>& extra) {
    JsonWriter json;
    json.beginObject();
    json.key("roots");
    json.beginArray();
    for (const auto& root : roots)
        json.value(root);
    json.endArray();
    json.key("groups");
    json.beginArray();
    for (const auto& group : results.duplicatesGroups()) {
        writeJsonGroup(json, *group);
        json.flushTo(out);
    }
    json.endArray();
    writeJsonSummary(json, summarise(results));
    if (extra)
        extra(json);
    json.endObject();
    json.flushTo(out, true);
    std::fputc('\n', out);
}

std::string textReport(CVDuplicatesController& results) {
    std::string out;
    const auto groups = results.duplicatesGroups();
    for (const auto& group : groups) {
        out += CVMetaGroup::stringType(group->metaGroupType()) + ": " +
               std::to_string(group->childrenCount()) + " copies of " + sizeText(group->size()) +
               (group->isVerified() ? "" : "  (compared by samples; --verify confirms)") + "\n";
        const std::vector<bool> links = hardLinksOfEarlierMembers(*group);
        const auto& files = group->files();
        for (std::size_t i = 0; i < files.size(); ++i)
            out += "  " + escapedForTerminal(files[i]->path()) +
                   (files[i]->needToRemove() ? "  (selected)" : "") +
                   (files[i]->removeForbidden() ? "  (cannot be removed)" : "") +
                   (links[i] ? "  (hard link: the same file as one above)" : "") + "\n";
        out += "\n";
    }
    if (groups.empty())
        return out + "No duplicates found.\n";
    const ResultsSummary summary = summarise(results);
    out += std::to_string(summary.groups) + (summary.groups == 1 ? " group, " : " groups, ") +
           std::to_string(summary.files) + " files, " + sizeText(summary.size) + " on disk in duplicates, " +
           sizeText(summary.reclaimable) + " reclaimable";
    if (summary.selectedFiles > 0)
        out += ", " + sizeText(summary.selected) + " selected (" + std::to_string(summary.selectedFiles) +
               (summary.selectedFiles == 1 ? " copy)" : " copies)");
    return out + "\n";
}

namespace {

std::string csvField(std::string_view text) {
    if (text.find_first_of(",\"\r\n") == std::string_view::npos)
        return std::string(text);
    std::string quoted = "\"";
    for (const char c : text)
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

} // namespace

std::string csvReport(CVDuplicatesController& results) {
    std::string out = "group,category,size,size_on_disk,selected,hard_link,path\r\n";
    std::size_t number = 0;
    for (const auto& group : results.duplicatesGroups()) {
        ++number;
        const std::vector<bool> links = hardLinksOfEarlierMembers(*group);
        const auto& files = group->files();
        for (std::size_t i = 0; i < files.size(); ++i)
            out += std::to_string(number) + "," + csvField(CVMetaGroup::stringType(group->metaGroupType())) +
                   "," + std::to_string(files[i]->size()) + "," + std::to_string(files[i]->sizeOnDisk()) +
                   "," + (files[i]->needToRemove() ? "yes" : "no") + "," + (links[i] ? "yes" : "no") + "," +
                   csvField(files[i]->path()) + "\r\n";
    }
    return out;
}

namespace {

bool isFolderGroup(const CVGroup& group) {
    return !group.files().empty() && dynamic_cast<const CVFolder*>(group.files().front().get()) != nullptr;
}

} // namespace

std::size_t folderGroupsCount(CVDuplicatesController& results) {
    std::size_t count = 0;
    for (const auto& group : results.duplicatesGroups())
        count += isFolderGroup(*group);
    return count;
}

bool mayWriteExportTo(const std::string& path, std::string* why) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) {
        // Made new, in a folder that must be there already.
        const std::string folder = parentPath(path);
        if (errno == ENOENT && !isDirectory(folder)) {
            *why = "the folder " + escapedForTerminal(folder) + " does not exist";
            return false;
        }
        return true;
    }
    if (!S_ISREG(st.st_mode)) {
        *why = escapedForTerminal(path) + " is not a regular file";
        return false;
    }
    std::string text;
    CVError error;
    if (st.st_size > 0 && !readFileContents(path, text, kMaxExportBytesChecked, &error)) {
        *why = escapedForTerminal(path) + " exists and is not an earlier export (" +
               error.localizedDescription() + "); it was left as it is";
        return false;
    }
    // An earlier export: absolute paths, each ended by a line feed or a NUL byte.
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text.find_first_of(std::string_view("\n\0", 2), at);
        const std::string_view entry(text.data() + at, (end == std::string::npos ? text.size() : end) - at);
        if (!entry.empty() && entry[0] != '/') {
            *why = escapedForTerminal(path) + " exists and is not an earlier export; it was left as it is";
            return false;
        }
        at = end == std::string::npos ? text.size() : end + 1;
    }
    return true;
}

std::string fdupesReport(CVDuplicatesController& results) {
    std::string out;
    for (const auto& group : results.duplicatesGroups()) {
        if (isFolderGroup(*group))
            continue;
        for (const auto& file : group->files())
            out += file->path() + "\n";
        out += "\n";
    }
    return out;
}

} // namespace corvel::cli

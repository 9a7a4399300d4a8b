#include "report.h"

#include "engine/file_sizer.h"
#include "engine/folder.h"
#include "results/duplicates_controller.h"
#include "results/meta_group.h"
#include "summary.h"

namespace corvel::cli {

std::string plainSpaces(std::string text) {
    // Sizes carry a no-break space between number and unit; a terminal wants a plain one.
    for (std::size_t at; (at = text.find("\xC2\xA0")) != std::string::npos;)
        text.replace(at, 2, " ");
    return text;
}

std::string sizeText(std::uint64_t bytes) {
    return plainSpaces(HVFileSizer::displayItemSizeFromSize(bytes));
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
        } else if (byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0 &&
                   static_cast<unsigned char>(text[i + 1]) >= 0x80) {
            hex(byte);
            hex(static_cast<unsigned char>(text[++i]));
        } else {
            out += text[i];
        }
    }
    return out;
}

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
    const auto groups = results.duplicatesGroups();
    for (const auto& group : groups) {
        json.beginObject();
        json.key("category");
        json.value(CVMetaGroup::stringType(group->metaGroupType()));
        json.key("categoryId");
        json.value(group->metaGroupType());
        json.key("nodeType");
        json.value(group->type());
        json.key("size");
        json.value(group->size());
        json.key("totalSize");
        json.value(group->totalSize());
        json.key("verified");
        json.value(group->isVerified());
        json.key("files");
        json.beginArray();
        for (const auto& child : group->children()) {
            const auto* file = dynamic_cast<const CVFile*>(child.get());
            if (!file)
                continue;
            json.beginObject();
            json.key("path");
            json.value(file->path());
            json.key("isFolder");
            json.value(dynamic_cast<const CVFolder*>(file) != nullptr);
            json.key("size");
            json.value(file->size());
            json.key("sizeOnDisk");
            json.value(file->sizeOnDisk());
            json.key("removeForbidden");
            json.value(file->removeForbidden());
            json.key("needToRemove");
            json.value(file->needToRemove());
            json.key("selectionType");
            json.value(CVFile::stringSelectionType(file->selectionType()));
            json.key("device");
            json.value(file->device());
            json.key("inode");
            json.value(file->inodeNumber());
            json.key("mtime");
            json.value(file->statMTimeNanoseconds());
            json.endObject();
        }
        json.endArray();
        json.endObject();
        json.flushTo(out);
    }
    json.endArray();
    const ResultsSummary summary = summarise(results);
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

std::string fdupesReport(CVDuplicatesController& results) {
    std::string out;
    for (const auto& group : results.duplicatesGroups()) {
        for (const auto& file : group->files())
            out += file->path() + "\n";
        out += "\n";
    }
    return out;
}

} // namespace corvel::cli

#include "plan_reader.h"

#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>

#include "engine/folder.h"
#include "engine/group.h"
#include "engine/node_type.h"
#include "platform/file_io.h"
#include "platform/main_queue.h"
#include "platform/user_defaults.h"
#include "results/duplicates_controller.h"
#include "selection/selecting_controller.h"

namespace corvel::cli {

namespace {

// Paths that are not valid UTF-8 are written with "\udcXX" per bad byte, which a JSON
// parser refuses as a lone surrogate. Each becomes U+FDD0 (a noncharacter) followed by
// U+00XX for the parse, and the byte again afterwards.
constexpr std::string_view kByteMarker = "\xEF\xB7\x90"; // U+FDD0 in UTF-8

std::string markSurrogateEscapes(std::string text) {
    if (text.find("\\udc") == std::string::npos && text.find("\\uDC") == std::string::npos)
        return text; // the usual case: every path was UTF-8
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size() && text[i + 1] == '\\') {
            out += "\\\\";
            ++i;
            continue;
        }
        if (text.compare(i, 4, "\\udc") == 0 || text.compare(i, 4, "\\uDC") == 0) {
            out += "\\ufdd0\\u00";
            out += text.substr(i + 4, 2);
            i += 5;
            continue;
        }
        out += text[i];
    }
    return out;
}

std::string restoreBytes(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        // The marker, then U+0080..U+00FF as two UTF-8 bytes.
        if (text.compare(i, kByteMarker.size(), kByteMarker) == 0 && i + 4 < text.size()) {
            const auto lead = static_cast<unsigned char>(text[i + 3]);
            const auto trail = static_cast<unsigned char>(text[i + 4]);
            out += static_cast<char>(((lead & 0x03) << 6) | (trail & 0x3F));
            i += 4;
            continue;
        }
        out += text[i];
    }
    return out;
}

[[nodiscard]] bool fail(std::string* message, std::string text) {
    *message = std::move(text);
    return false;
}

} // namespace

bool readPlan(const std::string& file, bool allowAllCopies, Plan* plan, std::string* message) {
    std::string text;
    CVError readError;
    if (!readFileContents(file, text, std::numeric_limits<std::size_t>::max(), &readError))
        return fail(message, "cannot read " + file + ": " +
                                 (readError.domain == kPosixErrorDomain
                                      ? std::string(std::strerror(static_cast<int>(readError.code)))
                                      : readError.localizedDescription()));
    const auto parsed = std::make_shared<nlohmann::json>();
    nlohmann::json& doc = *parsed;
    try {
        doc = nlohmann::json::parse(markSurrogateEscapes(std::move(text)));
    } catch (const nlohmann::json::exception& error) {
        // The parser's own tag ("[json.exception.parse_error.101] ") says nothing to a reader.
        std::string_view why = error.what();
        if (why.starts_with('[') && why.find("] ") != std::string_view::npos)
            why.remove_prefix(why.find("] ") + 2);
        return fail(message, file + " is not a scan document: " + std::string(why));
    }
    if (!doc.is_object() || !doc.contains("groups") || !doc["groups"].is_array())
        return fail(message, file + " is not a scan document (no \"groups\")");
    plan->roots.clear();
    if (doc.contains("roots") && doc["roots"].is_array())
        for (const auto& root : doc["roots"])
            if (root.is_string())
                plan->roots.push_back(restoreBytes(root.get<std::string>()));
    plan->results = std::make_shared<CVDuplicatesController>();
    std::vector<std::pair<GroupPtr, std::shared_ptr<CVFile>>> toMark;
    std::size_t index = 0;
    for (const auto& entry : doc["groups"]) {
        ++index;
        const std::string where = "group " + std::to_string(index);
        if (!entry.is_object() || !entry.contains("files") || !entry["files"].is_array() ||
            entry["files"].size() < 2)
            return fail(message, file + ": " + where + " has no files to compare");
        GroupPtr group;
        std::size_t marked = 0;
        for (const auto& member : entry["files"]) {
            try {
                const std::string path = restoreBytes(member.at("path").get<std::string>());
                const bool isFolder = member.value("isFolder", false);
                std::shared_ptr<CVFile> node;
                if (isFolder) {
                    auto folder = std::make_shared<CVFolder>(path, "", member.at("size").get<std::uint64_t>(),
                                                             member.value("sizeOnDisk", std::uint64_t{0}));
                    folder->setType(kNodeTypePlainFolder);
                    node = folder;
                } else {
                    node = std::make_shared<CVFile>(path, "", member.at("size").get<std::uint64_t>(),
                                                    member.value("sizeOnDisk", std::uint64_t{0}));
                }
                node->setDevice(member.at("device").get<std::uint64_t>());
                node->setInodeNumber(member.at("inode").get<std::uint64_t>());
                node->setStatMTimeNanoseconds(member.at("mtime").get<std::int64_t>());
                node->setRemoveForbidden(member.value("removeForbidden", false));
                if (!group)
                    group = CVGroup::initWithCVFile(node);
                else
                    group->addFile(node);
                if (member.value("needToRemove", false)) {
                    if (node->removeForbidden())
                        return fail(message, path + " is marked but may not be removed");
                    toMark.emplace_back(group, node);
                    ++marked;
                }
            } catch (const nlohmann::json::exception&) {
                return fail(
                    message,
                    file + ": a file of " + where +
                        " lacks its path, size, device, inode or mtime (written by an older corvel?)");
            }
        }
        if (marked == entry["files"].size()) {
            if (!allowAllCopies)
                return fail(message, file + ": " + where +
                                         " has every copy marked; add --allow-all-copies to remove them all "
                                         "(to the Trash only)");
            group->setUserForcedAllCopies(true);
        }
        plan->results->addGroup(group);
    }
    CVSelectingController selecting(nullptr, UserDefaults::standardUserDefaults());
    for (const auto& [group, node] : toMark)
        selecting.selectItem(node, group, true);
    MainQueue::shared().drain();
    plan->document = parsed;
    return true;
}

} // namespace corvel::cli

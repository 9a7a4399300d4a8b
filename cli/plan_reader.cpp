#include "plan_reader.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <unordered_map>
#include <variant>

#include "engine/folder.h"
#include "engine/group.h"
#include "engine/node_allocator.h"
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
        // Only \udc80 to \udcff stand for a byte; any other is left to the parser,
        // which refuses it as a lone surrogate.
        if ((text.compare(i, 4, "\\udc") == 0 || text.compare(i, 4, "\\uDC") == 0) && i + 5 < text.size() &&
            std::string_view("89abcdefABCDEF").find(text[i + 4]) != std::string_view::npos &&
            std::isxdigit(static_cast<unsigned char>(text[i + 5]))) {
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
    if (text.find(kByteMarker) == std::string::npos)
        return text;
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        // The marker, then U+0080..U+00FF as two UTF-8 bytes (C2 or C3, then the rest);
        // a marker the document held itself stays as it is.
        if (text.compare(i, kByteMarker.size(), kByteMarker) == 0 && i + 4 < text.size() &&
            (text[i + 3] == '\xC2' || text[i + 3] == '\xC3')) {
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

// One file of a group as the document gives it. A member that is not an object, or a
// known member of the wrong type, makes it malformed.
struct Member {
    std::string malformed; // why it cannot be read; empty when it can
    std::optional<std::string> path;
    bool isFolder = false;
    std::optional<std::uint64_t> size;
    std::uint64_t sizeOnDisk = 0;
    bool removeForbidden = false;
    bool needToRemove = false;
    std::optional<std::uint64_t> device;
    std::optional<std::uint64_t> inode;
    std::optional<std::int64_t> mtime;

    bool complete() const { return path && size && device && inode && mtime; }
};

// What keeps the path from being one corvel scan writes (empty when nothing does): it must
// be absolute, without empty, "." or ".." components and without a slash at its end.
// Others would be resolved against the working folder or through links, and name
// something the scan never compared.
std::string whyNotPlainAbsolutePath(std::string_view path) {
    // A NUL byte would end the path early in every system call: another file's path.
    if (path.find('\0') != std::string_view::npos)
        return "holds a NUL byte";
    if (path.empty() || path.front() != '/')
        return "is not an absolute path";
    if (path.size() < 2 || path.back() == '/')
        return "ends with a slash";
    for (std::size_t start = 1; start <= path.size();) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        const std::string_view part = path.substr(start, end - start);
        if (part.empty())
            return "holds two slashes in a row";
        if (part == "." || part == "..")
            return R"(holds a "." or ".." component)";
        start = end + 1;
    }
    return {};
}

// A scalar of the document, as the parser hands it over.
using Scalar = std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, double, std::string>;

// Stores the value in the field when it has the field's type; else the member is malformed.
template <typename Value, typename Field>
void take(Member& member, const std::string& key, const Scalar& value, Field& field) {
    if (const auto* held = std::get_if<Value>(&value))
        field = *held;
    else if (member.malformed.empty())
        member.malformed = "has \"" + key + "\" of the wrong type";
}

// Sets the member named key (others are not read). Every member of a file is a string, a
// truth value or a whole number, so null, or an object or list (given as null), is malformed.
void setMember(Member& member, const std::string& key, const Scalar& value) {
    if (key == "path") {
        take<std::string>(member, key, value, member.path);
        if (member.path)
            member.path = restoreBytes(*member.path);
    } else if (key == "isFolder") {
        take<bool>(member, key, value, member.isFolder);
    } else if (key == "removeForbidden") {
        take<bool>(member, key, value, member.removeForbidden);
    } else if (key == "needToRemove") {
        take<bool>(member, key, value, member.needToRemove);
    } else if (key == "size") {
        take<std::uint64_t>(member, key, value, member.size);
    } else if (key == "sizeOnDisk") {
        take<std::uint64_t>(member, key, value, member.sizeOnDisk);
    } else if (key == "device") {
        take<std::uint64_t>(member, key, value, member.device);
    } else if (key == "inode") {
        take<std::uint64_t>(member, key, value, member.inode);
    } else if (key == "mtime") {
        // The parser hands over a non-negative number as unsigned.
        const auto* after = std::get_if<std::uint64_t>(&value);
        if (after && *after <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
            member.mtime = static_cast<std::int64_t>(*after);
        else
            take<std::int64_t>(member, key, value, member.mtime);
    }
}

// Builds the plan while the document is parsed, one group at a time, so that no tree of
// the whole document is ever held: a plan of a large scan costs its nodes, not its text
// many times over. The first problem found is kept; a syntax error anywhere in the
// document still wins over it, as the document as a whole is then no scan document.
class PlanBuilder final : public nlohmann::json_sax<nlohmann::json> {
public:
    PlanBuilder(const std::string& file, bool allowAllCopies, Plan& plan)
        : m_file(file), m_allowAllCopies(allowAllCopies), m_plan(plan) {}

    bool null() override { return scalar(nullptr); }
    bool boolean(bool value) override { return scalar(value); }
    bool number_integer(number_integer_t value) override { return scalar(std::int64_t{value}); }
    bool number_unsigned(number_unsigned_t value) override { return scalar(std::uint64_t{value}); }
    bool number_float(number_float_t value, const string_t& /*text*/) override {
        return scalar(double{value});
    }
    bool string(string_t& value) override { return scalar(std::move(value)); }
    bool binary(binary_t& /*value*/) override { return scalar(nullptr); }
    bool key(string_t& key) override {
        m_key = std::move(key);
        if (here() == Place::Document && m_key == "groups") {
            // Every reader of a document with two "groups" takes only the last, and what the
            // user looked at must be what is removed: such a document is refused.
            if (m_sawGroupsKey && m_problem.empty())
                m_problem = m_file + ": \"groups\" is given twice";
            m_sawGroupsKey = true;
        }
        return true;
    }
    bool start_object(std::size_t /*elements*/) override { return open(false); }
    bool start_array(std::size_t /*elements*/) override { return open(true); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }
    bool parse_error(std::size_t /*position*/, const std::string& /*lastToken*/,
                     const nlohmann::detail::exception& error) override {
        // The parser's own tag ("[json.exception.parse_error.101] ") says nothing to a reader.
        std::string_view why = error.what();
        if (why.starts_with('[') && why.find("] ") != std::string_view::npos)
            why.remove_prefix(why.find("] ") + 2);
        m_syntaxError = m_file + " is not a scan document: " + std::string(why);
        return false;
    }

    // The outcome once the whole document is parsed; true when the plan is complete.
    bool finish(std::string* message) {
        if (!m_syntaxError.empty())
            return fail(message, m_syntaxError);
        if (!m_sawGroups)
            return fail(message, m_file + " is not a scan document (no \"groups\")");
        if (!m_problem.empty())
            return fail(message, m_problem);
        // The clean-up of emptied folders never removes a scanned folder: they must be known.
        if (m_plan.roots.empty())
            return fail(message, m_file + ": \"roots\" does not list the scanned folders");
        // Roots that do not hold the marked copies would leave the folders really scanned open
        // to the clean-up.
        for (const auto& [group, node] : m_toMark)
            if (!liesUnderARoot(node->storedPath()))
                return fail(message,
                            m_file + ": " + node->path() + R"( lies in none of the folders "roots" lists)");
        return true;
    }
    // The copies the document marks, in order, with their groups.
    const std::vector<std::pair<GroupPtr, std::shared_ptr<CVFile>>>& toMark() const { return m_toMark; }

private:
    bool liesUnderARoot(std::string_view path) const {
        // Roots are plain absolute paths: no trailing slash but on "/".
        return std::any_of(m_plan.roots.begin(), m_plan.roots.end(), [&](std::string_view root) {
            return path == root || root == "/" ||
                   (path.starts_with(root) && path.size() > root.size() && path[root.size()] == '/');
        });
    }

    // Where a value lies: the document's object, its "roots" and "groups" arrays, a group,
    // its "files" array, a file; Ignored for everything this reader does not look at.
    enum class Place { Document, Roots, Groups, Group, Files, File, Ignored };

    static bool fail(std::string* message, std::string text) {
        *message = std::move(text);
        return false;
    }

    Place here() const { return m_places.empty() ? Place::Ignored : m_places.back(); }

    bool scalar(Scalar value) {
        switch (here()) {
        case Place::Document:
            if (m_key == "groups")
                m_sawGroups = false; // not an array
            else if (m_key == "roots")
                noteProblem(m_file + ": \"roots\" is not a list of folders");
            break;
        case Place::Roots:
            if (const auto* root = std::get_if<std::string>(&value)) {
                std::string path = restoreBytes(*root);
                if (const std::string why = path == "/" ? std::string() : whyNotPlainAbsolutePath(path);
                    why.empty())
                    m_plan.roots.push_back(std::move(path));
                else
                    noteProblem(m_file + R"(: "roots" names ")" + path + "\", which " + why);
            } else {
                noteProblem(m_file + ": \"roots\" holds something other than a path");
            }
            break;
        case Place::Groups:
            startGroup();
            finishGroup(); // not an object: no files to compare
            break;
        case Place::Group:
            if (m_key == "files")
                m_filesSeen = false;
            break;
        case Place::Files:
            m_members.emplace_back().malformed = "is not an object";
            break;
        case Place::File:
            setMember(m_members.back(), m_key, value);
            break;
        case Place::Ignored:
            break;
        }
        return true;
    }

    bool open(bool array) {
        Place next = Place::Ignored;
        if (!m_opened) {
            m_opened = true;
            next = array ? Place::Ignored : Place::Document;
        } else {
            switch (here()) {
            case Place::Document:
                if (m_key == "roots") {
                    // The roots of every "roots" list count: they are only kept from the clean-up.
                    if (array)
                        next = Place::Roots;
                    else
                        noteProblem(m_file + ": \"roots\" is not a list of folders");
                } else if (m_key == "groups") {
                    m_sawGroups = array;
                    next = array ? Place::Groups : Place::Ignored;
                }
                break;
            case Place::Groups:
                startGroup();
                next = array ? Place::Ignored : Place::Group;
                break;
            case Place::Group:
                if (m_key == "files") {
                    m_filesSeen = array;
                    m_members.clear();
                    next = array ? Place::Files : Place::Ignored;
                }
                break;
            case Place::Files:
                m_members.emplace_back().malformed = array ? "is not an object" : "";
                next = array ? Place::Ignored : Place::File;
                break;
            case Place::File:
                setMember(m_members.back(), m_key, nullptr);
                break;
            case Place::Roots:
                noteProblem(m_file + ": \"roots\" holds something other than a path");
                break;
            case Place::Ignored:
                break;
            }
        }
        m_places.push_back(next);
        return true;
    }

    bool close() {
        const Place closed = here();
        if (!m_places.empty())
            m_places.pop_back();
        if (closed == Place::Group || (closed == Place::Ignored && here() == Place::Groups))
            finishGroup();
        return true;
    }

    void noteProblem(std::string problem) {
        if (m_problem.empty())
            m_problem = std::move(problem);
    }

    void startGroup() {
        ++m_groupIndex;
        m_filesSeen = false;
        m_members.clear();
    }

    // Checks the group just read and adds it to the results; the first problem is kept.
    void finishGroup() {
        if (!m_problem.empty())
            return;
        const std::string where = "group " + std::to_string(m_groupIndex);
        if (!m_filesSeen || m_members.size() < 2) {
            m_problem = m_file + ": " + where + " has no files to compare";
            return;
        }
        GroupPtr group;
        std::size_t marked = 0;
        std::set<std::string_view> paths;
        for (const Member& member : m_members) {
            if (!member.malformed.empty()) {
                m_problem = m_file + ": a file of " + where + " " + member.malformed;
                return;
            }
            if (!member.complete()) {
                m_problem = m_file + ": a file of " + where +
                            " lacks its path, size, device, inode or mtime (written by an older corvel?)";
                return;
            }
            if (const std::string why = whyNotPlainAbsolutePath(*member.path); !why.empty()) {
                m_problem = m_file + ": " + where + " names \"" + *member.path + "\", which " + why;
                return;
            }
            if (!paths.insert(*member.path).second) {
                m_problem = m_file + ": " + where + " names " + *member.path + " twice";
                return;
            }
            std::shared_ptr<CVFile> node;
            if (member.isFolder) {
                auto folder = makeNode<CVFolder>(*member.path, "", *member.size, member.sizeOnDisk);
                folder->setType(kNodeTypePlainFolder);
                node = folder;
            } else {
                node = makeNode<CVFile>(*member.path, "", *member.size, member.sizeOnDisk);
            }
            node->setDevice(*member.device);
            node->setInodeNumber(*member.inode);
            node->setStatMTimeNanoseconds(*member.mtime);
            node->setRemoveForbidden(member.removeForbidden);
            // A path in two groups could be kept by one and removed by the other. Keyed by
            // the node's own copy of the path, which lives as long as the plan.
            if (const auto [earlier, added] = m_groupOfPath.try_emplace(node->storedPath(), m_groupIndex);
                !added) {
                m_problem = m_file + ": " + *member.path + " is in group " + std::to_string(earlier->second) +
                            " and in " + where + "; a file belongs to one group only";
                return;
            }
            if (!group)
                group = CVGroup::initWithCVFile(node);
            else
                group->addFile(node);
            if (member.needToRemove) {
                if (member.removeForbidden) {
                    m_problem = *member.path +
                                " is marked but may not be removed (\"removeForbidden\": the scan found it"
                                " protected, a mount point, a library's item, or in a folder you may not"
                                " change); unmark it (\"needToRemove\": false) or scan again";
                    return;
                }
                m_toMark.emplace_back(group, node);
                ++marked;
            }
        }
        if (marked == m_members.size()) {
            if (!m_allowAllCopies) {
                m_problem =
                    m_file + ": " + where +
                    " has every copy marked; add --allow-all-copies to remove them all (to the Trash only)";
                return;
            }
            group->setUserForcedAllCopies(true);
        }
        m_plan.results->addGroup(group);
    }

    const std::string& m_file;
    const bool m_allowAllCopies;
    Plan& m_plan;
    std::vector<Place> m_places;
    bool m_opened = false;
    std::string m_key;
    bool m_sawGroupsKey = false;
    bool m_sawGroups = false; // and it was a list
    std::size_t m_groupIndex = 0;
    // Every path read (views of the nodes' paths, which the plan keeps), and its group.
    std::unordered_map<std::string_view, std::size_t> m_groupOfPath;
    bool m_filesSeen = false;
    std::vector<Member> m_members;
    std::vector<std::pair<GroupPtr, std::shared_ptr<CVFile>>> m_toMark;
    std::string m_syntaxError;
    std::string m_problem;
};

} // namespace

bool readPlan(const std::string& file, bool allowAllCopies, Plan* plan, std::string* message) {
    std::string text;
    CVError readError;
    if (!readFileContents(file, text, std::numeric_limits<std::size_t>::max(), &readError)) {
        *message = "cannot read " + file + ": " +
                   (readError.domain == kPosixErrorDomain
                        ? std::string(std::strerror(static_cast<int>(readError.code)))
                        : readError.localizedDescription());
        return false;
    }
    plan->roots.clear();
    plan->results = std::make_shared<CVDuplicatesController>();
    PlanBuilder builder(file, allowAllCopies, *plan);
    nlohmann::json::sax_parse(markSurrogateEscapes(std::move(text)), &builder);
    if (!builder.finish(message))
        return false;
    CVSelectingController selecting(nullptr, UserDefaults::standardUserDefaults());
    for (const auto& [group, node] : builder.toMark())
        selecting.selectItem(node, group, true);
    MainQueue::shared().drain();
    return true;
}

} // namespace corvel::cli

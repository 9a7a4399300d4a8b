// Feeds bytes to the removal plan reader as a plan file ("corvel remove PLAN.json"). The
// first byte chooses whether every copy of a group may be marked (--allow-all-copies); the
// rest is the document. A plan the reader accepts drives a removal, so besides crashes it
// must hold what the reader promises before anything is touched:
//   - every group has two files or more, and no path stands twice in the whole plan;
//   - every path is a plain absolute path (no empty, "." or ".." component, no NUL byte,
//     no slash at its end);
//   - a marked copy may be removed, and lies under one of the plan's roots;
//   - a group has a copy that stays unless every copy was allowed, and then it is forced.

#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>

#include "engine/group.h"
#include "fuzz_input_file.h"
#include "plan_reader.h"
#include "platform/user_defaults.h"
#include "results/duplicates_controller.h"

using namespace corvel;

namespace {

void require(bool holds) {
    if (!holds)
        std::abort();
}

bool isPlainAbsolutePath(std::string_view path) {
    if (path.size() < 2 || path.front() != '/' || path.back() == '/' ||
        path.find('\0') != std::string_view::npos)
        return false;
    for (std::size_t start = 1; start <= path.size();) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        const std::string_view part = path.substr(start, end - start);
        if (part.empty() || part == "." || part == "..")
            return false;
        start = end + 1;
    }
    return true;
}

bool liesUnder(std::string_view path, const std::vector<std::string>& roots) {
    for (const std::string& root : roots)
        if (root == "/" || path == root ||
            (path.starts_with(root) && path.size() > root.size() && path[root.size()] == '/'))
            return true;
    return false;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    // Marking reads the settings: a file of the scratch folder, never the user's.
    UserDefaults::setStandardPath(corvel::fuzz::scratchFolder() + "/settings.plist");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const bool allowAllCopies = (data[0] & 1) != 0;
    const std::string path = corvel::fuzz::writeInput("plan.json", data + 1, size - 1);
    cli::Plan plan;
    std::string message;
    if (!cli::readPlan(path, allowAllCopies, &plan, &message)) {
        require(!message.empty());
        return 0;
    }
    require(!plan.roots.empty());
    std::set<std::string> seen;
    for (const GroupPtr& group : plan.results->allDuplicatesGroups()) {
        const auto files = group->files();
        require(files.size() >= 2);
        std::size_t marked = 0;
        for (const auto& file : files) {
            const std::string filePath = file->path();
            require(isPlainAbsolutePath(filePath));
            require(seen.insert(filePath).second);
            if (file->needToRemove()) {
                ++marked;
                require(!file->removeForbidden());
                require(liesUnder(filePath, plan.roots));
            }
        }
        require(marked < files.size() || (allowAllCopies && group->userForcedAllCopies()));
    }
    return 0;
}

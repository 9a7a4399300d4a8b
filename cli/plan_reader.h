#pragma once
// Reads a removal plan: a document written by "corvel scan --json" (possibly edited by
// the user, "needToRemove" flipped), back into groups of nodes that carry the identity
// recorded at the scan (device, inode, size, modification time), so that the removal
// pass checks every copy against what was recorded before touching it. The document is
// read in one pass, group by group: what it costs is its nodes, not a tree of its text.

#include <memory>
#include <string>
#include <vector>

namespace corvel {
class CVDuplicatesController;
}

namespace corvel::cli {

struct Plan {
    std::vector<std::string> roots;
    std::shared_ptr<CVDuplicatesController> results;
};

// The plan in the file, marks included. A file that cannot be read, is not such a
// document, or lacks a member's identity answers false with the message. Groups whose
// every copy is marked need allowAllCopies (they are then forced by the user); without
// it that is an error too.
[[nodiscard]] bool readPlan(const std::string& file, bool allowAllCopies, Plan* plan, std::string* message);

} // namespace corvel::cli

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

// The plan in the file, marks included. Refused with the message (false): a file that
// cannot be read, a document that is no JSON or has no "groups" list (or two), no
// "roots" list of absolute paths (the clean-up of emptied folders must know them), a
// group with fewer than two files, a file without its path, size, device, inode or mtime
// or with a member of another type than written, a path that is not absolute or has
// ".", ".." or a NUL byte in it, a path named twice in a group or in two groups, a
// marked copy that may not be removed, and a group whose every copy is marked unless
// allowAllCopies (such groups are then forced by the user). Nothing is marked unless the
// whole plan is read.
[[nodiscard]] bool readPlan(const std::string& file, bool allowAllCopies, Plan* plan, std::string* message);

} // namespace corvel::cli

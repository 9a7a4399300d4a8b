#pragma once
// Confirms groups found on sampled content (large files compared on about 20 KB,
// applications on their property lists, folders holding either) byte for byte, after a
// scan. A group whose members all match stays, marked verified; members that differ are
// split into groups of their own (each of two or more members, verified); a member that
// cannot be compared (unreadable, changed meanwhile) leaves its group. Groups compared
// whole pass through unchanged.
//
// Groups are confirmed on several threads, each with its own comparer streaming the
// files; the new groups are made on the calling thread, in the order of the old ones.

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/group.h"

namespace corvel {

struct GroupVerification {
    std::vector<GroupPtr> groups; // the groups after confirmation, in order
    std::uint64_t confirmed = 0;  // sampled groups found equal as they were
    std::uint64_t split = 0;      // sampled groups whose members differed
    std::uint64_t dropped = 0;    // sampled groups with fewer than two equal members left
    std::uint64_t bytesCompared = 0;
    std::vector<std::string> problems; // members that could not be compared, with why
};

// threads: how many comparisons run at once (at least 1). stop, when given, ends the
// work early; unconfirmed groups are then left out.
GroupVerification verifySampledGroups(const std::vector<GroupPtr>& groups, unsigned threads,
                                      const std::atomic<bool>* stop = nullptr);

} // namespace corvel

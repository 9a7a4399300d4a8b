#pragma once
// SizeGroups: the comparable nodes of a scan filed by size. The walk adds nodes in its
// order; file() then sorts them by size, keeps the walk's order within a size and drops
// every size held by one node alone (it can have no duplicate). All sizes share one
// array and one small index, so a scan of a million paths keeps no table and no list
// per size. Not thread-safe: the scan thread fills it and searches it.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "engine/node.h"

namespace corvel {

class SizeGroups {
public:
    // Adds a node in walk order; its size must be final by the time file() runs.
    void add(NodePtr node) { m_nodes.push_back(std::move(node)); }
    // Files the nodes added; once, when the walk ends (a size held by one node alone is
    // gone afterwards, so nodes added later could not pair with it).
    void file();

    // The sizes held by two nodes or more, largest first.
    std::vector<std::uint64_t> sizesLargestFirst() const;
    // The nodes of that size in walk order (empty when none or one); the search may
    // reorder them in place. Valid until the next add, file or clear.
    std::span<NodePtr> nodes(std::uint64_t size);
    // How many sizes are held by two nodes or more.
    std::size_t size() const { return m_ranges.size(); }
    bool empty() const { return m_ranges.empty(); }
    // Lets go of every node and of the memory.
    void clear();

    // The nodes of one size: their places in the array.
    struct Range {
        std::uint64_t size;
        std::size_t begin;
        std::size_t count;
    };

private:
    // In walk order until filed, then by size ascending.
    std::vector<NodePtr> m_nodes;
    std::vector<Range> m_ranges; // sizes ascending
};

} // namespace corvel

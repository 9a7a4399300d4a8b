#include "size_groups.h"

#include <algorithm>
#include <bit>
#include <limits>

#include "platform/invariant.h"

namespace corvel {

namespace {

// The runs of one size held twice or more, counted first so that the list is made at its
// length (a scan of a million paths has tens of thousands of them).
template <typename SizeAt>
std::vector<SizeGroups::Range> rangesOfSizesHeldTwice(std::size_t count, SizeAt sizeAt) {
    auto runEnd = [&](std::size_t i) {
        std::size_t end = i + 1;
        while (end < count && sizeAt(end) == sizeAt(i))
            ++end;
        return end;
    };
    std::size_t runs = 0;
    for (std::size_t i = 0; i < count;) {
        const std::size_t end = runEnd(i);
        runs += end - i > 1 ? 1 : 0;
        i = end;
    }
    std::vector<SizeGroups::Range> ranges;
    ranges.reserve(runs);
    for (std::size_t i = 0; i < count;) {
        const std::size_t end = runEnd(i);
        if (end - i > 1)
            ranges.push_back({sizeAt(i), i, end - i});
        i = end;
    }
    return ranges;
}

// Puts the nodes in sorted order where they are (no second array: a million nodes would
// need 16 MB more at once), one cycle of the permutation at a time; order[i] is the place
// the node at i comes from, and a place done is marked by pointing at itself.
template <typename Place> void permute(std::vector<NodePtr>& nodes, std::vector<Place>& order) {
    for (std::size_t start = 0; start < order.size(); ++start) {
        if (order[start] == start)
            continue;
        NodePtr held = std::move(nodes[start]);
        std::size_t at = start;
        while (order[at] != start) {
            const auto from = static_cast<std::size_t>(order[at]);
            nodes[at] = std::move(nodes[from]);
            order[at] = static_cast<Place>(at);
            at = from;
        }
        nodes[at] = std::move(held);
        order[at] = static_cast<Place>(at);
    }
}

} // namespace

void SizeGroups::file() {
    const std::size_t count = m_nodes.size();
    if (count == 0) {
        m_ranges.clear();
        return;
    }
    // Four bytes a place: a scan holds far fewer than four billion nodes.
    CORVEL_ASSERT(count <= std::numeric_limits<std::uint32_t>::max());
    // Sorted through copies of the sizes: comparing through the node pointers would visit
    // the nodes in random order, a cache miss per comparison.
    std::vector<std::uint64_t> keys(count); // the sizes first
    std::uint64_t largest = 0;
    for (std::size_t i = 0; i < count; ++i) {
        keys[i] = m_nodes[i]->size();
        largest = std::max(largest, keys[i]);
    }
    const int placeBits = std::bit_width(count);
    std::vector<Range> ranges;
    if (placeBits < 64 && (largest >> (64 - placeBits)) == 0) {
        // Usually every size fits beside its place in one number (below 64 TiB for a
        // million nodes): one sort of plain numbers orders by size and, within a size, by
        // place, which keeps the walk's order. Eight bytes a node.
        for (std::size_t i = 0; i < count; ++i)
            keys[i] = keys[i] << placeBits | i;
        std::sort(keys.begin(), keys.end());
        ranges = rangesOfSizesHeldTwice(count, [&](std::size_t i) { return keys[i] >> placeBits; });
        const std::uint64_t placeMask = (std::uint64_t{1} << placeBits) - 1;
        for (std::uint64_t& key : keys)
            key &= placeMask;
        permute(m_nodes, keys);
    } else {
        // Sizes too large for that: a permutation sorted over the sizes, the place
        // breaking ties. Twelve bytes a node.
        const std::vector<std::uint64_t>& sizes = keys;
        std::vector<std::uint32_t> order(count);
        for (std::size_t i = 0; i < count; ++i)
            order[i] = static_cast<std::uint32_t>(i);
        std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
            return sizes[a] != sizes[b] ? sizes[a] < sizes[b] : a < b;
        });
        ranges = rangesOfSizesHeldTwice(count, [&](std::size_t i) { return sizes[order[i]]; });
        std::vector<std::uint64_t>().swap(keys);
        permute(m_nodes, order);
    }
    // The sizes held once are left out.
    std::size_t kept = 0;
    for (Range& range : ranges) {
        if (range.begin != kept)
            for (std::size_t k = 0; k < range.count; ++k)
                m_nodes[kept + k] = std::move(m_nodes[range.begin + k]);
        range.begin = kept;
        kept += range.count;
    }
    m_nodes.resize(kept);
    m_ranges = std::move(ranges);
}

std::vector<std::uint64_t> SizeGroups::sizesLargestFirst() const {
    std::vector<std::uint64_t> sizes;
    sizes.reserve(m_ranges.size());
    for (auto it = m_ranges.rbegin(); it != m_ranges.rend(); ++it)
        sizes.push_back(it->size);
    return sizes;
}

std::span<NodePtr> SizeGroups::nodes(std::uint64_t size) {
    const auto it =
        std::lower_bound(m_ranges.begin(), m_ranges.end(), size,
                         [](const Range& range, std::uint64_t wanted) { return range.size < wanted; });
    if (it == m_ranges.end() || it->size != size)
        return {};
    return {m_nodes.data() + it->begin, it->count};
}

void SizeGroups::clear() {
    std::vector<NodePtr>().swap(m_nodes);
    std::vector<Range>().swap(m_ranges);
}

} // namespace corvel

#include "size_groups.h"

#include <algorithm>
#include <limits>

#include "platform/invariant.h"

namespace corvel {

void SizeGroups::file() {
    const std::size_t count = m_nodes.size();
    // Sorted through a permutation over a copy of the sizes: comparing through the
    // node pointers would visit the nodes in random order, a cache miss per comparison.
    std::vector<std::uint64_t> sizes(count);
    for (std::size_t i = 0; i < count; ++i)
        sizes[i] = m_nodes[i]->size();
    // Four bytes a place: a scan holds far fewer than four billion nodes.
    CORVEL_ASSERT(count <= std::numeric_limits<std::uint32_t>::max());
    std::vector<std::uint32_t> order(count);
    for (std::size_t i = 0; i < count; ++i)
        order[i] = static_cast<std::uint32_t>(i);
    // The place breaks ties, so the walk's order holds within a size.
    std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
        return sizes[a] != sizes[b] ? sizes[a] < sizes[b] : a < b;
    });
    // The end of the run of one size that starts at i.
    auto runEnd = [&](std::size_t i) {
        std::size_t end = i + 1;
        while (end < count && sizes[order[end]] == sizes[order[i]])
            ++end;
        return end;
    };
    // The sizes held twice or more, at their places in the sorted order.
    std::vector<Range> ranges;
    for (std::size_t i = 0; i < count;) {
        const std::size_t end = runEnd(i);
        if (end - i > 1)
            ranges.push_back({sizes[order[i]], i, end - i});
        i = end;
    }
    std::vector<std::uint64_t>().swap(sizes);
    // The nodes put in sorted order where they are (no second array: a million nodes
    // would need 16 MB more at once), one cycle of the permutation at a time; a place
    // done is marked by pointing at itself.
    for (std::size_t start = 0; start < count; ++start) {
        if (order[start] == start)
            continue;
        NodePtr held = std::move(m_nodes[start]);
        std::size_t at = start;
        while (order[at] != start) {
            const std::size_t from = order[at];
            m_nodes[at] = std::move(m_nodes[from]);
            order[at] = static_cast<std::uint32_t>(at);
            at = from;
        }
        m_nodes[at] = std::move(held);
        order[at] = static_cast<std::uint32_t>(at);
    }
    std::vector<std::uint32_t>().swap(order);
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
    ranges.shrink_to_fit();
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

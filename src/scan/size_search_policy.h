#pragma once
// SizeSearchPolicy: which size groups a scan searches. Sizes are searched from the
// largest down. With a minimum size the user set (preferences or the command line) every
// size from it up is searched and nothing below. With the automatic minimum, sizes from
// kAutomaticMinimumScanSize up are always searched, and smaller ones while fewer than
// topFilesCount groups were found (groups of every size count). The count of groups
// still wanted wraps on purpose when one size gives more groups than were still wanted,
// after which every size is searched.
// Scan thread only.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <utility>

namespace corvel {

class CVPreferences;

class SizeSearchPolicy {
public:
    // minimumOverride: the command line's minimum, which wins over the preferences.
    SizeSearchPolicy(std::optional<std::uint64_t> minimumOverride, const CVPreferences& preferences);

    // Whether the size is at least the minimum: its progress step counts.
    bool isUseful(std::uint64_t size) const { return size >= m_minimumSize; }
    // Whether the size group is searched now (sizes are asked largest first).
    bool searches(std::uint64_t size) const { return isUseful(size) || m_wanted != 0; }
    // Takes note of the groups a searched size gave.
    void found(std::size_t groups) {
        if (m_wanted != 0)
            m_wanted -= groups; // wraps on purpose: then every size is searched
    }

    std::uint64_t minimumSize() const { return m_minimumSize; }

private:
    std::uint64_t m_minimumSize = 0;
    std::uint64_t m_wanted = 0; // groups still wanted below the minimum
};

// ScanProgressSteps: how the locator's progress moves while size groups are searched.
// With kManyGroups size groups or more, 2 at the start, an equal step per useful size
// while below 99, and the rest at the end. With fewer, nothing until the end, which adds
// 99 and then 100 (so observers see 199; views clamp it), with short pauses where the
// locator allows them. update(delta, pauseSeconds) adds delta; progress() reads the sum.
class ScanProgressSteps {
public:
    static constexpr std::size_t kManyGroups = 31;

    template <typename Update, typename Read>
    ScanProgressSteps(std::size_t sizes, std::uint64_t usefulSizes, Update update, Read progress)
        : m_many(sizes >= kManyGroups),
          m_step(usefulSizes == 0 ? 0.0 : 93.0 / static_cast<double>(usefulSizes)),
          m_update(std::move(update)), m_progress(std::move(progress)) {}

    // The step for each useful size (0 when no size is useful: the end brings 100).
    double step() const { return m_step; }
    void start() {
        if (m_many)
            m_update(2.0, 0);
    }
    void sizeSearched() {
        if (m_many && m_progress() < 99.0)
            m_update(m_step, 0);
    }
    void finish() {
        if (m_many) {
            m_update(100.0 - m_progress(), 0);
            return;
        }
        m_update(99.0, 0.012);
        m_update(100.0, 0.5);
    }

private:
    bool m_many;
    double m_step;
    std::function<void(double, double)> m_update;
    std::function<double()> m_progress;
};

} // namespace corvel

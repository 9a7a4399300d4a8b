#include "size_search_policy.h"

#include "settings/preferences.h"

namespace corvel {

SizeSearchPolicy::SizeSearchPolicy(std::optional<std::uint64_t> minimumOverride,
                                   const CVPreferences& preferences) {
    if (minimumOverride) {
        m_minimumSize = *minimumOverride;
    } else if (preferences.overrideMinSizeDefining()) {
        m_minimumSize = preferences.minimumScanSize();
    } else {
        m_minimumSize = kAutomaticMinimumScanSize;
        m_wanted = preferences.topFilesCount();
    }
}

} // namespace corvel

#include "achievements_controller.h"

#include <algorithm>
#include <limits>

#include "engine/file_sizer.h"
#include "platform/system_log.h"
#include "platform/user_defaults.h"

namespace corvel {

namespace {

constexpr std::uint64_t kLargestStoredTotal = std::numeric_limits<std::int64_t>::max();

// The stored total, or 0 for a value that is not a non-negative number (the user is
// told: a hand edit gone wrong stays in the file until a pass frees space).
std::uint64_t storedTotal(const UserDefaults& defaults) {
    const PropertyValue stored = defaults.objectForKey(kTotalSizeSavedKey);
    if (stored.isNull())
        return 0;
    const bool number = stored.asInteger() || stored.asReal();
    if (number && (stored.isUnsignedInteger() || stored.toDouble() >= 0))
        return std::min(stored.toUInt64(), kLargestStoredTotal);
    warnUser(std::string("Setting \"") + kTotalSizeSavedKey + "\" in " + defaults.path() + " holds " +
             stored.description() +
             ", not a size: the total saved counts from 0, and the next removal that "
             "frees space replaces it");
    return 0;
}

} // namespace

HVAchievementsController::HVAchievementsController(UserDefaults& defaults)
    : HVAchievementsController(&defaults, defaults) {}

HVAchievementsController HVAchievementsController::readingOnly(const UserDefaults& defaults) {
    return HVAchievementsController(nullptr, defaults);
}

HVAchievementsController::HVAchievementsController(UserDefaults* writable, const UserDefaults& defaults)
    : m_levelLimits{0,           4000000000,   11000000000,   23000000000,
                    49000000000, 101000000000, 1000000000000, 10000000000000},
      m_levelRanks{"Green Private",
                   "Shrub Capral",
                   "Glade Captain",
                   "Forest Major",
                   "Jungle Colonel",
                   "Tropical Marshal",
                   "Supreme Woodland Commander",
                   "General of the Vegetable Kingdom"},
      m_defaults(writable) {
    // Two passes at once each add what they freed to the total.
    if (m_defaults)
        m_defaults->setSaveMerge(kTotalSizeSavedKey, UserDefaults::SaveMerge::Sum);
    if (m_defaults && !m_defaults->hasStoredValueForKey(kTotalSizeSavedKey)) {
        m_defaults->setInteger(0, kTotalSizeSavedKey);
        CVError error;
        if (!m_defaults->synchronize(&error))
            systemLog("Failed to save settings: " + error.localizedDescription());
    }
    m_userTotalSize = storedTotal(defaults);
    m_userLevel = 1;
    updateLevel();
    updateRank();
}

void HVAchievementsController::shreddingFinishedAndRemoved(std::uint64_t bytes, bool /*withFilesLeft*/,
                                                           bool /*iPhotoWasLaunched*/) {
    m_lastTimeSize = bytes;
    m_userTotalSize =
        bytes > kLargestStoredTotal - m_userTotalSize ? kLargestStoredTotal : m_userTotalSize + bytes;
    m_scanSavedString = stringWithSize(m_lastTimeSize);
    m_totallySavedString = stringWithSize(m_userTotalSize);
    systemLogf("Total size saved: %@", m_totallySavedString);
    // A pass that freed nothing leaves the stored total as it is (an odd value stays too).
    if (m_defaults && bytes > 0)
        m_defaults->setInteger(static_cast<std::int64_t>(m_userTotalSize), kTotalSizeSavedKey);
    updateLevel();
    updateRank();
}

void HVAchievementsController::updateLevel() {
    const auto limits = static_cast<std::int64_t>(m_levelLimits.size());
    while (m_userLevel >= 1 && m_userLevel < limits &&
           m_userTotalSize >=
               static_cast<std::uint64_t>(m_levelLimits[static_cast<std::size_t>(m_userLevel)])) {
        if (m_userLevel > limits - 2) {
            systemLog("All limits exceeded... need to invent smth (=");
            return;
        }
        ++m_userLevel;
    }
}

void HVAchievementsController::updateRank() {
    m_userRank = m_levelRanks[static_cast<std::size_t>(m_userLevel - 1)];
}

} // namespace corvel

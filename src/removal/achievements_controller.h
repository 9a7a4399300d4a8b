#pragma once
// HVAchievementsController: the bytes freed over the application's life, kept in the
// user-defaults store under "TotalSizeSaved", and the level and rank title they earn.
//
// Levels run from 1 to 7: level L shows levelRanks[L - 1] and is left when the total
// reaches levelLimits[L]. The eighth title is never given; a total at or beyond the last
// limit stays at level 7 and logs "All limits exceeded... need to invent smth (=".
// Level and rank are brought up to date when the controller is made and after every
// finished pass, so they are right whenever shown.
//
// The controller reads the store when it is made and writes the total after each pass;
// the store saves on synchronize (the removal pass flushes it at its end). Main thread.

#include <array>
#include <cstdint>
#include <string>

namespace corvel {

class UserDefaults;

inline constexpr const char* kTotalSizeSavedKey = "TotalSizeSaved";

class HVAchievementsController {
public:
    static constexpr std::size_t kLevelsCount = 8;

    // Over the store: creates "TotalSizeSaved" = 0 and saves the store when the key is
    // missing; the total is the stored value (0 for a value that is not a non-negative
    // number, which is logged and left until a pass writes the new total).
    explicit HVAchievementsController(UserDefaults& defaults);
    // The same figures for a reader that must not change the store: a missing key counts
    // as 0 and is not created, and a pass changes only the figures in memory.
    static HVAchievementsController readingOnly(const UserDefaults& defaults);

    // A pass that was not stopped freed bytes: adds them to the total, sets both size
    // strings, logs "Total size saved: %@", writes the total to the store (kept within
    // the signed 64-bit range the key holds) and brings level and rank up to date. The
    // two flags are accepted and not used.
    void shreddingFinishedAndRemoved(std::uint64_t bytes, bool withFilesLeft, bool iPhotoWasLaunched);

    // Climbs from the current level while the total reaches the next limit.
    void updateLevel();
    // userRank = levelRanks[userLevel - 1].
    void updateRank();

    const std::array<std::int64_t, kLevelsCount>& levelLimits() const { return m_levelLimits; }
    const std::array<std::string, kLevelsCount>& levelRanks() const { return m_levelRanks; }
    const std::string& userRank() const { return m_userRank; }
    std::int64_t userLevel() const { return m_userLevel; }
    std::uint64_t lastTimeSize() const { return m_lastTimeSize; }
    std::uint64_t userTotalSize() const { return m_userTotalSize; }
    // Both empty until a pass finishes.
    const std::string& scanSavedString() const { return m_scanSavedString; }
    const std::string& totallySavedString() const { return m_totallySavedString; }

private:
    HVAchievementsController(UserDefaults* writable, const UserDefaults& defaults);

    std::array<std::int64_t, kLevelsCount> m_levelLimits;
    std::array<std::string, kLevelsCount> m_levelRanks;
    std::string m_userRank;
    std::int64_t m_userLevel = 1;
    std::uint64_t m_lastTimeSize = 0;
    std::uint64_t m_userTotalSize = 0;
    std::string m_scanSavedString;
    std::string m_totallySavedString;
    UserDefaults* m_defaults; // null for a reader: never written
};

} // namespace corvel

#pragma once
// CVPreferences: the typed front for the application's settings in the user-defaults
// store. It registers the defaults, maps the minimum-size slider to bytes, answers the
// removal settings, and reports setting changes to the analytics tracker role (which
// sends nothing anywhere). Main thread, except minimumScanSize, overrideMinSizeDefining
// and topFilesCount, which the scan thread reads once per scan.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/property_value.h"
#include "platform/user_defaults.h"

namespace corvel {

class Tracker;

inline constexpr const char* kMinScanSizeKey = "MinScanSize";
inline constexpr const char* kOverrideMinSizeKey = "OverrideMinSize";
inline constexpr const char* kSendDataKey = "SendData";
inline constexpr const char* kMoveIntoTrashKey = "MoveIntoTrash";
inline constexpr const char* kRemoveEmptyFoldersKey = "RemoveEmptyFolders";
inline constexpr const char* kUpdateConfigurationFilesKey = "UpdateConfigurationFiles";
inline constexpr const char* kConfigVersionKey = "ConfigVersion";
inline constexpr const char* kSchedulerIntervalKey = "SchedulerInterval";
inline constexpr const char* kSortingTypeKey = "SortingType";
inline constexpr const char* kSortingDirectionKey = "SortingDirection";
inline constexpr const char* kFinderServiceKey = "FinderService";
inline constexpr const char* kShouldShowLearnMoreKey = "ShouldShowLearnMore";
inline constexpr const char* kIntegrationMinSizeKey = "IntegrationMinSize";
inline constexpr const char* kIntegrationTextsKey = "IntegrationTexts";
inline constexpr const char* kAppleLanguagesKey = "AppleLanguages";

// The minimum size the scan uses in automatic mode, and how many of the largest files it then keeps.
inline constexpr std::uint64_t kAutomaticMinimumScanSize = 50000;

class CVPreferences {
public:
    // The one instance, on the standard store and the shared tracker.
    static CVPreferences& sharedInstance();
    CVPreferences(UserDefaults& defaults, Tracker& tracker);
    ~CVPreferences();
    CVPreferences(const CVPreferences&) = delete;
    CVPreferences& operator=(const CVPreferences&) = delete;

    bool moveDuplicatesToTrash() const;
    void setMoveDuplicatesToTrash(bool value);
    bool removeEmptyFolders() const;
    bool overrideMinSizeDefining() const;
    // The slider position from "MinScanSize" in bytes.
    std::uint64_t minimumScanSize() const;
    static std::uint64_t minScanSizeFromFloat(double x);
    bool autoUpdateConfigurationFiles() const;
    bool needToSendAnonymousData() const;
    bool finderServiceEnabled() const;
    void setFinderServiceEnabled(bool value);
    std::string configVersion() const;
    void setConfigVersion(const std::string& version);
    std::int64_t schedulePeriod() const;
    void setSchedulePeriod(std::int64_t period);
    bool shouldAdvertiseTDW() const;
    void setShouldAdvertiseTDW(bool value);
    std::uint64_t advertisementMinSize() const;
    void setAdvertisementMinSize(std::uint64_t size);
    PropertyValue::Dictionary advertisementTexts() const;
    void setAdvertisementTexts(const PropertyValue::Dictionary& texts);
    // The promotion text in the preferred language, else in English; empty when none.
    std::string localizedAdvertisementText();

    // First of "AppleLanguages" (cached once found), "en" without any.
    std::string preferredLanguage();
    // The first three of "AppleLanguages" joined by ",".
    std::string preferredLanguages() const;
    // Query string for links to the maker's site; what Linux does not know stays empty.
    std::string defaultSiteArguments();

    bool isAllFilesPath(const std::string& path) const { return path == m_allFilesPath; }
    const std::string& allFilesPath() const { return m_allFilesPath; }
    std::uint64_t topFilesCount() const { return m_topFilesCount; }
    void setTopFilesCount(std::uint64_t count) { m_topFilesCount = count; }
    std::int64_t sortKey() const { return m_sortKey; }
    void setSortKey(std::int64_t key) { m_sortKey = key; }
    bool sortDirection() const { return m_sortDirection; }
    void setSortDirection(bool direction) { m_sortDirection = direction; }
    bool configUpdateFailed() const { return m_configUpdateFailed; }
    void setConfigUpdateFailed(bool failed) { m_configUpdateFailed = failed; }
    // Writes sortKey and sortDirection to the store.
    void acceptChanges();

    // The band name of a size: "Locate All", "500 KB", "1 MB", "20 MB", "50 MB", "100 MB", "200 MB".
    static const char* sizeBandName(std::uint64_t size);
    // The system's languages in the store's form ("de-DE", "en"), from $LANGUAGE, $LC_ALL,
    // $LC_MESSAGES or $LANG; registered as the default of "AppleLanguages".
    static std::vector<std::string> systemLanguages();

private:
    void registerDefaults();
    void observe();
    void report(const char* action, const std::string& label);

    UserDefaults& m_defaults;
    Tracker& m_tracker;
    bool m_sortDirection = false;
    bool m_configUpdateFailed = false;
    std::uint64_t m_topFilesCount = 100;
    std::int64_t m_sortKey = 0;
    std::string m_allFilesPath;
    std::string m_preferredLanguage;
    std::vector<UserDefaults::ObserverId> m_observers;
    // Lives as long as this object; queued change deliveries check it.
    std::shared_ptr<CVPreferences*> m_alive;
};

} // namespace corvel

#include "preferences.h"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <mutex>

#include "platform/app_info.h"
#include "platform/file_url.h"
#include "platform/main_queue.h"
#include "platform/text_format.h"
#include "platform/tracker.h"
#include "platform/user_paths.h"

namespace corvel {

namespace {

constexpr const char* kPreferencesCategory = "Preferences";

struct Band {
    std::uint64_t bound;
    const char* name;
};
constexpr Band kBands[] = {{0, "Locate All"},    {500000, "500 KB"},  {1000000, "1 MB"},
                           {20000000, "20 MB"},  {50000000, "50 MB"}, {100000000, "100 MB"},
                           {200000000, "200 MB"}};

// "de_DE.UTF-8@euro" -> "de-DE"; "C" and "POSIX" -> nothing.
std::string languageFromLocale(std::string locale) {
    locale = locale.substr(0, locale.find_first_of(".@"));
    if (locale.empty() || locale == "C" || locale == "POSIX")
        return {};
    for (char& c : locale)
        if (c == '_')
            c = '-';
    return locale;
}

} // namespace

CVPreferences& CVPreferences::sharedInstance() {
    static auto* instance = new CVPreferences(UserDefaults::standardUserDefaults(), sharedTracker());
    return *instance;
}

CVPreferences::CVPreferences(UserDefaults& defaults, Tracker& tracker)
    : m_defaults(defaults), m_tracker(tracker),
      m_allFilesPath(
          "/System/Library/CoreServices/Finder.app/Contents/Resources/MyLibraries/myDocuments.cannedSearch") {
    m_sortKey = m_defaults.integerForKey(kSortingTypeKey);
    m_sortDirection = m_defaults.boolForKey(kSortingDirectionKey);
    registerDefaults();
    observe();
}

CVPreferences::~CVPreferences() {
    for (const auto id : m_observers)
        m_defaults.removeObserver(id);
}

std::vector<std::string> CVPreferences::systemLanguages() {
    std::vector<std::string> languages;
    if (const char* list = std::getenv("LANGUAGE"); list && *list) {
        std::string rest = list;
        while (!rest.empty()) {
            const auto colon = rest.find(':');
            if (auto language = languageFromLocale(rest.substr(0, colon)); !language.empty())
                languages.push_back(language);
            rest = colon == std::string::npos ? std::string() : rest.substr(colon + 1);
        }
    }
    if (languages.empty()) {
        for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
            const char* value = std::getenv(name);
            if (value && *value) {
                if (auto language = languageFromLocale(value); !language.empty())
                    languages.push_back(language);
                break;
            }
        }
    }
    return languages;
}

void CVPreferences::registerDefaults() {
    // The slider default is a single-precision value in the store; it maps to 50000 bytes.
    m_defaults.registerDefaults({{kMinScanSizeKey, static_cast<double>(0.0499999F)},
                                 {kSendDataKey, true},
                                 {kMoveIntoTrashKey, true},
                                 {kRemoveEmptyFoldersKey, false},
                                 {kUpdateConfigurationFilesKey, true},
                                 {kConfigVersionKey, "0.5"}});
    // The interface toolkit on Linux is always a modern one, so the reminder period is registered.
    m_defaults.registerDefaults({{kSchedulerIntervalKey, 2}});
    PropertyValue::Array languages;
    for (const auto& language : systemLanguages())
        languages.emplace_back(language);
    if (!languages.empty())
        m_defaults.registerDefaults({{kAppleLanguagesKey, std::move(languages)}});
}

void CVPreferences::report(const char* action, const std::string& label) {
    m_tracker.trackEvent(kPreferencesCategory, action, label, 1);
}

void CVPreferences::observe() {
    // Deliveries are queued on the main queue and may arrive after this object is gone;
    // the token tells them whether it still lives.
    auto alive = std::make_shared<CVPreferences*>(this);
    auto checked = [weak = std::weak_ptr<CVPreferences*>(alive)](auto body) {
        return [weak, body](const PropertyValue& oldValue, const PropertyValue& newValue) {
            if (auto self = weak.lock())
                body(**self, oldValue, newValue);
        };
    };
    auto checkbox = [](const PropertyValue& value) { return value.toBool() ? "Checked" : "Unchecked"; };
    m_observers.push_back(m_defaults.addObserver(
        kMoveIntoTrashKey,
        checked([checkbox](CVPreferences& self, const PropertyValue&, const PropertyValue& v) {
            self.report("Move Duplicates to Trash", checkbox(v));
        })));
    m_observers.push_back(m_defaults.addObserver(
        kRemoveEmptyFoldersKey,
        checked([checkbox](CVPreferences& self, const PropertyValue&, const PropertyValue& v) {
            self.report("Remove Empty Folders", checkbox(v));
        })));
    m_observers.push_back(m_defaults.addObserver(
        kUpdateConfigurationFilesKey,
        checked([checkbox](CVPreferences& self, const PropertyValue&, const PropertyValue& v) {
            self.report("Automatically Check iTunes and iPhoto", checkbox(v));
        })));
    auto minimalSize = [](CVPreferences& self) {
        self.report("Minimal File Size",
                    self.overrideMinSizeDefining()
                        ? std::string("Change to Manual \u2013 ") + sizeBandName(self.minimumScanSize())
                        : std::string("Change to Automatic"));
    };
    m_observers.push_back(m_defaults.addObserver(
        kMinScanSizeKey,
        checked([minimalSize](CVPreferences& self, const PropertyValue& o, const PropertyValue&) {
            const std::uint64_t before = o.isNull() ? 0 : minScanSizeFromFloat(o.toDouble());
            if (std::string_view(sizeBandName(before)) != sizeBandName(self.minimumScanSize()))
                minimalSize(self);
        })));
    m_observers.push_back(m_defaults.addObserver(
        kOverrideMinSizeKey, checked([minimalSize](CVPreferences& self, const PropertyValue&,
                                                   const PropertyValue&) { minimalSize(self); })));
    m_alive = std::move(alive);
}

bool CVPreferences::moveDuplicatesToTrash() const {
    return m_defaults.boolForKey(kMoveIntoTrashKey);
}
void CVPreferences::setMoveDuplicatesToTrash(bool value) {
    m_defaults.setBool(value, kMoveIntoTrashKey);
}
bool CVPreferences::removeEmptyFolders() const {
    return m_defaults.boolForKey(kRemoveEmptyFoldersKey);
}
bool CVPreferences::overrideMinSizeDefining() const {
    return m_defaults.boolForKey(kOverrideMinSizeKey);
}
std::uint64_t CVPreferences::minimumScanSize() const {
    return minScanSizeFromFloat(static_cast<double>(m_defaults.floatForKey(kMinScanSizeKey)));
}
bool CVPreferences::autoUpdateConfigurationFiles() const {
    return m_defaults.boolForKey(kUpdateConfigurationFilesKey);
}
bool CVPreferences::needToSendAnonymousData() const {
    return m_defaults.boolForKey(kSendDataKey);
}
bool CVPreferences::finderServiceEnabled() const {
    return m_defaults.boolForKey(kFinderServiceKey);
}
void CVPreferences::setFinderServiceEnabled(bool value) {
    m_defaults.setBool(value, kFinderServiceKey);
}
std::string CVPreferences::configVersion() const {
    return m_defaults.stringForKey(kConfigVersionKey).value_or("");
}
void CVPreferences::setConfigVersion(const std::string& version) {
    m_defaults.setObject(version, kConfigVersionKey);
}
std::int64_t CVPreferences::schedulePeriod() const {
    return m_defaults.integerForKey(kSchedulerIntervalKey);
}
void CVPreferences::setSchedulePeriod(std::int64_t period) {
    m_defaults.setInteger(period, kSchedulerIntervalKey);
}
bool CVPreferences::shouldAdvertiseTDW() const {
    if (m_configUpdateFailed || !autoUpdateConfigurationFiles())
        return false;
    return m_defaults.boolForKey(kShouldShowLearnMoreKey);
}
void CVPreferences::setShouldAdvertiseTDW(bool value) {
    m_defaults.setBool(value, kShouldShowLearnMoreKey);
}
std::uint64_t CVPreferences::advertisementMinSize() const {
    return m_defaults.unsignedIntegerForKey(kIntegrationMinSizeKey);
}
void CVPreferences::setAdvertisementMinSize(std::uint64_t size) {
    m_defaults.setUnsignedInteger(size, kIntegrationMinSizeKey);
}
PropertyValue::Dictionary CVPreferences::advertisementTexts() const {
    return m_defaults.dictionaryForKey(kIntegrationTextsKey).value_or(PropertyValue::Dictionary{});
}
void CVPreferences::setAdvertisementTexts(const PropertyValue::Dictionary& texts) {
    m_defaults.setObject(texts, kIntegrationTextsKey);
}

std::string CVPreferences::localizedAdvertisementText() {
    const PropertyValue texts(advertisementTexts());
    if (const std::string* text = texts[preferredLanguage()].asString())
        return *text;
    return texts["en"].toString();
}

std::string CVPreferences::preferredLanguage() {
    if (!m_preferredLanguage.empty())
        return m_preferredLanguage;
    const auto languages = m_defaults.arrayForKey(kAppleLanguagesKey);
    if (!languages || languages->empty() || !(*languages)[0].isString())
        return "en";
    m_preferredLanguage = *(*languages)[0].asString();
    return m_preferredLanguage;
}

std::string CVPreferences::preferredLanguages() const {
    const auto languages = m_defaults.arrayForKey(kAppleLanguagesKey).value_or(PropertyValue::Array{});
    std::string joined;
    for (std::size_t i = 0; i < languages.size() && i < 3; ++i) {
        if (i > 0)
            joined += ",";
        joined += languages[i].toString();
    }
    return joined;
}

std::string CVPreferences::defaultSiteArguments() {
    // OS version, user identifier, A/B values and campaign are not known on Linux: empty.
    return formatf("product=%@&version=%@&user=%@&OS=%@&lang=%@&cid=%@&v=%@%@", percentEncode("Corvel"),
                   applicationVersion(), accountName(), "", preferredLanguages(), "", "", "");
}

void CVPreferences::acceptChanges() {
    m_defaults.setInteger(m_sortKey, kSortingTypeKey);
    m_defaults.setBool(m_sortDirection, kSortingDirectionKey);
}

const char* CVPreferences::sizeBandName(std::uint64_t size) {
    for (auto it = std::rbegin(kBands); it != std::rend(kBands); ++it)
        if (it->bound <= size)
            return it->name;
    return kBands[0].name;
}

std::uint64_t CVPreferences::minScanSizeFromFloat(double x) {
    if (std::isnan(x))
        return 0;
    if (x < 0.0125)
        return 0;
    struct Snap {
        double low, high;
        std::uint64_t bytes;
    };
    static constexpr Snap snaps[] = {
        {0.0875, 0.1125, 100000},   {0.1875, 0.2125, 200000},    {0.2875, 0.3125, 470000},
        {0.3875, 0.4125, 733000},   {0.4875, 0.5125, 1000000},   {0.5875, 0.6125, 40000000},
        {0.6875, 0.7125, 80000000}, {0.7875, 0.8125, 120000000}, {0.8875, 0.9125, 160000000}};
    for (const auto& snap : snaps)
        if (snap.low < x && x < snap.high)
            return snap.bytes;
    if (x > 0.9875)
        return 200000000;
    // The curve is computed in double precision; only the ceiling is taken wider.
    double bytes;
    if (x <= 0.2)
        bytes = x * 1000000.0;
    else if (x <= 0.5)
        bytes = (x - 0.2) * 2666666.666666667 + 200000.0;
    else
        bytes = (x - 0.5) * 398000000.0 + 1000000.0;
    return static_cast<std::uint64_t>(std::ceil(static_cast<long double>(bytes)));
}

} // namespace corvel

#include "statistics_controller.h"

#include "platform/system_log.h"
#include "platform/user_defaults.h"

namespace corvel {

namespace {

// True when the key holds something that is not an array: a value the controller must leave alone.
bool holdsForeignValue(const UserDefaults& defaults) {
    const PropertyValue stored = defaults.objectForKey(kUserStatisticsArrayKey);
    if (stored.isNull() || stored.isArray())
        return false;
    systemLog(std::string("Statistics: \"") + kUserStatisticsArrayKey + "\" holds " + stored.description() +
              ", not a list of scans; left as it is");
    return true;
}

} // namespace

CVStatisticsController& CVStatisticsController::sharedInstance() {
    static auto* instance = new CVStatisticsController(UserDefaults::standardUserDefaults());
    return *instance;
}

CVStatisticsController::CVStatisticsController(UserDefaults& defaults) : m_defaults(defaults) {
    // Two runs at once each add their own records, and neither loses the other's.
    m_defaults.setSaveMerge(kUserStatisticsArrayKey, UserDefaults::SaveMerge::ArrayByIndex);
}

std::optional<PropertyValue::Array> CVStatisticsController::scanRecords(const UserDefaults& defaults) {
    return defaults.arrayForKey(kUserStatisticsArrayKey);
}

void CVStatisticsController::addScanWithFoldersCount(std::int64_t count) {
    std::lock_guard lock(m_mutex);
    if (holdsForeignValue(m_defaults))
        return;
    PropertyValue::Array records = scanRecords(m_defaults).value_or(PropertyValue::Array{});
    records.emplace_back(
        PropertyValue::Dictionary{{kNumberOfFoldersDroppedKey, static_cast<long long>(count)}});
    m_defaults.setObject(PropertyValue(std::move(records)), kUserStatisticsArrayKey);
}

void CVStatisticsController::scanFinishedWithSize(std::uint64_t size, std::uint64_t foundFiles) {
    setOnLastRecord(kFoundSizeKey, size, kFoundFilesKey, foundFiles,
                    "Strange... There is no stats array at this point. Scanned.");
}

void CVStatisticsController::removalFinishedWithSize(std::uint64_t size, std::uint64_t removedFiles) {
    setOnLastRecord(kRemovedSizeKey, size, kRemovedFilesKey, removedFiles,
                    "Strange... There is no stats array at this point. Removed.");
}

void CVStatisticsController::setOnLastRecord(std::string_view sizeKey, std::uint64_t size,
                                             std::string_view filesKey, std::uint64_t files,
                                             std::string_view missingLine) {
    std::lock_guard lock(m_mutex);
    if (holdsForeignValue(m_defaults))
        return;
    auto records = scanRecords(m_defaults);
    // An empty array has no record to finish either: the same situation as no array.
    if (!records || records->empty()) {
        systemLog(missingLine);
        return;
    }
    PropertyValue& last = records->back();
    if (!last.isDictionary()) {
        systemLog("Statistics: the last scan record is " + last.description() +
                  ", not a record; left as it is");
        return;
    }
    last.set(sizeKey, static_cast<unsigned long long>(size));
    last.set(filesKey, static_cast<unsigned long long>(files));
    m_defaults.setObject(PropertyValue(std::move(*records)), kUserStatisticsArrayKey);
}

} // namespace corvel

#pragma once
// CVStatisticsController: one record per scan in the user-defaults store, under
// "UserStatisticsArray", oldest first. A record is a dictionary: "NumberOfFoldersDropped"
// when the scan starts, "FoundSize" and "FoundFiles" when it ends, "RemovedSize" and
// "RemovedFiles" when a removal pass after it ends (a later pass overwrites them). The
// array grows by one record per scan and is never trimmed.
//
// The controller writes through the store it is given (which saves on synchronize) and
// keeps nothing itself. Any thread: each change reads, edits and stores the array under
// the controller's lock, so one controller per store must be the only writer of the key.
// A value of another type under the key is never overwritten: the change is logged and
// dropped.

#include <cstdint>
#include <mutex>
#include <optional>
#include <string_view>

#include "platform/property_value.h"

namespace corvel {

class UserDefaults;

inline constexpr const char* kUserStatisticsArrayKey = "UserStatisticsArray";
inline constexpr const char* kNumberOfFoldersDroppedKey = "NumberOfFoldersDropped";
inline constexpr const char* kFoundSizeKey = "FoundSize";
inline constexpr const char* kFoundFilesKey = "FoundFiles";
inline constexpr const char* kRemovedSizeKey = "RemovedSize";
inline constexpr const char* kRemovedFilesKey = "RemovedFiles";

class CVStatisticsController {
public:
    // The one instance of the application, over the standard store.
    static CVStatisticsController& sharedInstance();
    explicit CVStatisticsController(UserDefaults& defaults);
    CVStatisticsController(const CVStatisticsController&) = delete;
    CVStatisticsController& operator=(const CVStatisticsController&) = delete;

    // A scan starts: makes the array when missing and appends {"NumberOfFoldersDropped": count}.
    void addScanWithFoldersCount(std::int64_t count);
    // The scan ends: sets "FoundSize" and "FoundFiles" on the last record. With no record
    // to set them on, only logs "Strange... There is no stats array at this point. Scanned.".
    void scanFinishedWithSize(std::uint64_t size, std::uint64_t foundFiles);
    // A removal pass ends: sets "RemovedSize" and "RemovedFiles" on the last record. With
    // no record, only logs "Strange... There is no stats array at this point. Removed.".
    void removalFinishedWithSize(std::uint64_t size, std::uint64_t removedFiles);

    // The records as stored, oldest first; nothing when the store holds no array under
    // the key (missing, or a value of another type). Never writes.
    static std::optional<PropertyValue::Array> scanRecords(const UserDefaults& defaults);

private:
    void setOnLastRecord(std::string_view sizeKey, std::uint64_t size, std::string_view filesKey,
                         std::uint64_t files, std::string_view missingLine);

    UserDefaults& m_defaults;
    std::mutex m_mutex;
};

} // namespace corvel

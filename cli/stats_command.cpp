#include "stats_command.h"

#include <cstdio>
#include <iostream>

#include "engine/file_sizer.h"
#include "json_writer.h"
#include "platform/file_io.h"
#include "platform/property_list.h"
#include "platform/user_defaults.h"
#include "removal/achievements_controller.h"
#include "removal/statistics_controller.h"
#include "report.h"
#include "results/duplicates_controller.h"
#include "results/meta_group.h"
#include "scan_command.h"

namespace corvel::cli {

namespace {

constexpr const char* kUnsignedKeys[] = {kFoundSizeKey, kFoundFilesKey, kRemovedSizeKey, kRemovedFilesKey};

bool hasNumber(const PropertyValue& record, const char* key) {
    return record[key].asInteger() || record[key].asReal();
}

std::string plural(std::uint64_t count, const char* noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

// "Scan 2: 1 folder; found 14 files, 6.5 MB; removed 3 files, 1.2 MB"
std::string recordLine(std::size_t number, const PropertyValue& record) {
    std::string line = "Scan " + std::to_string(number) + ":";
    if (!record.isDictionary())
        return line + " not a scan record\n";
    if (hasNumber(record, kNumberOfFoldersDroppedKey))
        line += " " + plural(record[kNumberOfFoldersDroppedKey].toUInt64(), "folder");
    if (hasNumber(record, kFoundSizeKey))
        line += "; found " + plural(record[kFoundFilesKey].toUInt64(), "file") + ", " +
                stringWithSize(record[kFoundSizeKey].toUInt64());
    else
        line += "; not finished";
    if (hasNumber(record, kRemovedSizeKey))
        line += "; removed " + plural(record[kRemovedFilesKey].toUInt64(), "file") + ", " +
                stringWithSize(record[kRemovedSizeKey].toUInt64());
    return line + "\n";
}

void writeJson(const PropertyValue::Array& records, const HVAchievementsController& achievements) {
    JsonWriter json;
    json.beginObject();
    json.key("scans");
    json.beginArray();
    for (const auto& record : records) {
        json.beginObject();
        if (hasNumber(record, kNumberOfFoldersDroppedKey)) {
            json.key(kNumberOfFoldersDroppedKey);
            json.value(record[kNumberOfFoldersDroppedKey].toInt64());
        }
        for (const char* key : kUnsignedKeys)
            if (hasNumber(record, key)) {
                json.key(key);
                json.value(record[key].toUInt64());
            }
        json.endObject();
    }
    json.endArray();
    json.key("totalSizeSaved");
    json.value(achievements.userTotalSize());
    json.key("level");
    json.value(achievements.userLevel());
    json.key("rank");
    json.value(achievements.userRank());
    json.endObject();
    json.flushTo(stdout, true);
    std::fputc('\n', stdout);
}

} // namespace

void recordScanStatistics(CVStatisticsController& statistics, std::size_t rootsCount,
                          const CVDuplicatesController& results) {
    const auto all = results.mainMetaGroup();
    statistics.addScanWithFoldersCount(static_cast<std::int64_t>(rootsCount));
    statistics.scanFinishedWithSize(all ? all->size() : 0, all ? all->filesCount() : 0);
}

int runStats(const StatsOptions& options) {
    const std::string path = options.settings.empty() ? UserDefaults::defaultPath() : options.settings;
    // The store sets an unreadable file aside (a rename); this command changes nothing, so
    // it looks at the file first.
    if (pathExists(path)) {
        PropertyValue root;
        CVError error;
        const bool parsed = readPropertyListFile(path, root, &error);
        if (!parsed || !root.isDictionary()) {
            if (!parsed && error.domain == kPosixErrorDomain)
                std::cerr << "corvel: cannot read " << path << ": " << error.localizedDescription() << "\n";
            else
                std::cerr << notASettingsFileLine(options.settings.empty() ? "" : "--settings", path,
                                                  parsed ? "its top level is not a dictionary"
                                                         : error.localizedDescription());
            return options.settings.empty() ? kExitFailure : kExitUsage;
        }
    }
    const UserDefaults store(path); // read through const: nothing below can write it
    const auto records = CVStatisticsController::scanRecords(store);
    if (!records && !store.objectForKey(kUserStatisticsArrayKey).isNull())
        std::cerr << "corvel: \"" << kUserStatisticsArrayKey << "\" in " << path
                  << " is not a list of scans; none shown\n";
    const auto achievements = HVAchievementsController::readingOnly(store);
    const PropertyValue::Array none;
    if (options.json) {
        writeJson(records ? *records : none, achievements);
        return kExitOK;
    }
    std::string out;
    if (!records || records->empty())
        out += "No scans recorded.\n";
    else
        for (std::size_t i = 0; i < records->size(); ++i)
            out += recordLine(i + 1, (*records)[i]);
    out += "Total size saved: " + stringWithSize(achievements.userTotalSize()) + "\n";
    out += "Level " + std::to_string(achievements.userLevel()) + ": " + achievements.userRank() + "\n";
    std::fwrite(out.data(), 1, out.size(), stdout);
    return kExitOK;
}

} // namespace corvel::cli

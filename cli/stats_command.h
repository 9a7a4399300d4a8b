#pragma once
// "corvel stats": the scans recorded in the settings, the total size saved, the level and
// the rank; and the statistics record a completed "corvel scan" leaves.

#include <cstddef>
#include <string>

namespace corvel {
class CVDuplicatesController;
class CVStatisticsController;
} // namespace corvel

namespace corvel::cli {

struct StatsOptions {
    bool json = false;
    std::string settings; // empty: $CORVEL_SETTINGS or the default file
};

// Records one completed scan: a new record with the number of roots, finished with the
// size and file count of the results' all-files category. Main thread, after the scan.
void recordScanStatistics(CVStatisticsController& statistics, std::size_t rootsCount,
                          const CVDuplicatesController& results);

// Prints the records (one line each, or one JSON document), the total saved, level and
// rank. Read-only: the settings file is never written or created, not even the zero total
// the achievements make on first use. A file that is not a settings file is reported and
// left untouched: exit 2 when it was named with --settings, 1 otherwise; else 0.
int runStats(const StatsOptions& options);

} // namespace corvel::cli

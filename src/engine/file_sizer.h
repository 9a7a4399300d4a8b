#pragma once
// HVFileSizer: how much disk an item uses, and byte counts as short display strings.
// Display strings use the user's locale for the number and the string tables for the
// unit names; a no-break space separates number and unit.

#include <cstdint>
#include <fts.h>
#include <optional>
#include <string>
#include <sys/stat.h>

#include "platform/property_value.h"

namespace corvel {

class HVFileSizer {
public:
    // Bytes allocated on disk for a traversal entry: 0 for directory cycles, errors,
    // unreadable folders and entries without status (logged), 0 for a file with two or
    // more hard links (it is not charged), otherwise 512-byte blocks × 512, or the
    // logical size rounded up to whole file-system blocks when uncompressed sizes are asked for.
    static std::uint64_t itemSizeWithFTSEntry(const FTSENT* entry);
    static std::uint64_t itemSizeWithStat(const struct stat& st);
    static void setReturnUncompressedFileSize(bool value);

    // "1.5 MB": the largest unit the size reaches (KB even below 1000 bytes), at most
    // 0 (KB), 1 (MB), 2 (GB), 3 (TB), 4 (PB) decimals, rounded half to even. 0 is "Zero KB".
    static std::string displayItemSizeFromSize(std::uint64_t size, bool base2 = false);
    static std::string displayItemSizeFromSizeInBase2(std::uint64_t size) {
        return displayItemSizeFromSize(size, true);
    }
    // The number part and the unit part of the decimal display ("" unit for 0).
    static std::string displayItemSizeNumberFromSize(std::uint64_t size);
    static std::string displayItemSizeDimensionFromSize(std::uint64_t size);

    // Total disk usage of the tree at path by the rules above (no symbolic links followed).
    static std::uint64_t itemSizeAtPath(const std::string& path);
    // The same, ended early (answering nothing) once the path is on the stop list;
    // for a display that measures folders on another thread. Any thread.
    static std::optional<std::uint64_t> itemSizeAtPathAbleToStop(const std::string& path);
    // Puts the path on the process-wide stop list / empties the list. Any thread.
    static void stopScanningForPath(const std::string& path);
    static void restorePathsToBeStopped();
    static std::string displayItemSizeAtPath(const std::string& path);
};

// The size string of the interface's size fields: KB up to 1000000 bytes, MB up to
// 10^9, GB above, at most fractDigits decimals rounded down; finder style rounds up to
// the next multiple of 4000 bytes first. UINT64_MAX shows as unavailable, 0 as zero.
std::string stringWithSize(std::uint64_t bytes, bool finderStyle = false, int fractDigits = 2);

// What a size field shows for a value: a number as its byte count, an array of numbers
// as their sum (UINT64_MAX elements skipped), an empty string as itself, null as "",
// anything else as 0 bytes.
std::string sizeToStringTransformedValue(const PropertyValue& value);

} // namespace corvel

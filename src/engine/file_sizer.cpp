#include "file_sizer.h"

#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <deque>
#include <functional>
#include <mutex>
#include <set>
#include <string_view>
#include <unicode/numberformatter.h>

#include "platform/string_tables.h"
#include "platform/system_log.h"
#include "platform/text_format.h"

namespace corvel {

namespace {

std::atomic<bool> g_uncompressed{false};

constexpr const char* kNoBreakSpace = "\u00A0";
constexpr std::uint64_t kDecimalUnits[] = {1000ULL, 1000000ULL, 1000000000ULL, 1000000000000ULL,
                                           1000000000000000ULL};
constexpr std::uint64_t kBinaryUnits[] = {1024ULL, 1048576ULL, 1073741824ULL, 1099511627776ULL,
                                          1125899906842624ULL};
constexpr char kUnitLetters[] = "KMGTPE";

icu::Locale numberLocale() {
    icu::Locale locale = icu::Locale::getDefault();
    return std::string_view(locale.getName()) == "en_US_POSIX" ? icu::Locale::getRoot() : locale;
}

// Making a formatter costs many times what formatting with it does, and a results list
// formats a size for every row: each thread keeps one per locale, precision and rounding.
const icu::number::LocalizedNumberFormatter& numberFormatter(int maxFraction,
                                                             UNumberFormatRoundingMode mode) {
    struct Kept {
        std::string locale;
        int maxFraction;
        UNumberFormatRoundingMode mode;
        icu::number::LocalizedNumberFormatter formatter;
    };
    thread_local std::deque<Kept> kept; // a deque: a formatter handed out never moves
    const icu::Locale locale = numberLocale();
    const std::string_view name = locale.getName();
    for (const Kept& k : kept)
        if (k.maxFraction == maxFraction && k.mode == mode && k.locale == name)
            return k.formatter;
    using namespace icu::number;
    kept.push_back({std::string(name), maxFraction, mode,
                    NumberFormatter::withLocale(locale)
                        .precision(Precision::minMaxFraction(0, maxFraction))
                        .roundingMode(mode)
                        .grouping(UNUM_GROUPING_OFF)});
    return kept.back().formatter;
}

std::string formatNumber(double value, int maxFraction, UNumberFormatRoundingMode mode) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::UnicodeString text =
        numberFormatter(maxFraction, mode).formatDouble(value, status).toString(status);
    if (U_FAILURE(status))
        return formatf("%.*f", maxFraction, value);
    std::string out;
    text.toUTF8String(out);
    return out;
}

int unitIndex(std::uint64_t size, const std::uint64_t* units) {
    int k = 0;
    for (int i = 0; i < 5; ++i)
        if (size >= units[i])
            k = i;
    return k;
}

std::string unitName(int k) {
    return localized(formatf("%cB", static_cast<int>(kUnitLetters[k])));
}

} // namespace

void HVFileSizer::setReturnUncompressedFileSize(bool value) {
    g_uncompressed = value;
}

std::uint64_t HVFileSizer::itemSizeWithStat(const struct stat& st) {
    if (st.st_nlink >= 2 && !S_ISDIR(st.st_mode))
        return 0;
    if (g_uncompressed) {
        const auto block = static_cast<std::uint64_t>(st.st_blksize > 0 ? st.st_blksize : 4096);
        const auto size = static_cast<std::uint64_t>(st.st_size);
        return (size + block - 1) / block * block;
    }
    return static_cast<std::uint64_t>(st.st_blocks) * 512;
}

std::uint64_t HVFileSizer::itemSizeWithFTSEntry(const FTSENT* entry) {
    switch (entry->fts_info) {
    case FTS_DC:
        return 0;
    case FTS_DNR:
    case FTS_ERR:
    case FTS_NS:
        systemLogf("%s: %s", std::string(entry->fts_path), std::string(std::strerror(entry->fts_errno)));
        return 0;
    default:
        break;
    }
    if (!entry->fts_statp)
        return 0;
    return itemSizeWithStat(*entry->fts_statp);
}

std::string HVFileSizer::displayItemSizeFromSize(std::uint64_t size, bool base2) {
    if (size == 0)
        return localized("Zero KB");
    const std::uint64_t* units = base2 ? kBinaryUnits : kDecimalUnits;
    const int k = unitIndex(size, units);
    const double value = static_cast<double>(size) / static_cast<double>(units[k]);
    return formatNumber(value, k, UNUM_ROUND_HALFEVEN) + kNoBreakSpace + unitName(k);
}

std::string HVFileSizer::displayItemSizeNumberFromSize(std::uint64_t size) {
    if (size == 0)
        return "0";
    const int k = unitIndex(size, kDecimalUnits);
    return formatNumber(static_cast<double>(size) / static_cast<double>(kDecimalUnits[k]), k,
                        UNUM_ROUND_HALFEVEN);
}

std::string HVFileSizer::displayItemSizeDimensionFromSize(std::uint64_t size) {
    return size == 0 ? std::string() : unitName(unitIndex(size, kDecimalUnits));
}

namespace {

std::mutex g_stopMutex;
std::set<std::string>& pathsToBeStopped() {
    static std::set<std::string> paths;
    return paths;
}

bool isStopped(const std::string& path) {
    std::lock_guard lock(g_stopMutex);
    return pathsToBeStopped().contains(path);
}

// The tree's disk usage; nothing when stop answers true between entries.
std::optional<std::uint64_t> treeSize(const std::string& path, const std::function<bool()>& stop) {
    char* roots[] = {const_cast<char*>(path.c_str()), nullptr};
    FTS* fts = ::fts_open(roots, FTS_PHYSICAL | FTS_NOCHDIR | FTS_XDEV, nullptr);
    if (!fts)
        return 0;
    std::uint64_t total = 0;
    bool stopped = false;
    while (FTSENT* entry = ::fts_read(fts)) {
        if (stop && stop()) {
            stopped = true;
            break;
        }
        if (entry->fts_info != FTS_DP)
            total += HVFileSizer::itemSizeWithFTSEntry(entry);
    }
    ::fts_close(fts);
    return stopped ? std::nullopt : std::optional<std::uint64_t>(total);
}

} // namespace

std::uint64_t HVFileSizer::itemSizeAtPath(const std::string& path) {
    return treeSize(path, nullptr).value_or(0);
}

std::optional<std::uint64_t> HVFileSizer::itemSizeAtPathAbleToStop(const std::string& path) {
    return treeSize(path, [&path] { return isStopped(path); });
}

void HVFileSizer::stopScanningForPath(const std::string& path) {
    std::lock_guard lock(g_stopMutex);
    pathsToBeStopped().insert(path);
}

void HVFileSizer::restorePathsToBeStopped() {
    std::lock_guard lock(g_stopMutex);
    pathsToBeStopped().clear();
}

std::string HVFileSizer::displayItemSizeAtPath(const std::string& path) {
    return displayItemSizeFromSize(itemSizeAtPath(path));
}

std::string stringWithSize(std::uint64_t bytes, bool finderStyle, int fractDigits) {
    if (bytes == UINT64_MAX)
        return localized("StringValue_Unavailable");
    if (bytes == 0)
        return localized("StringValue_Zero");
    if (finderStyle)
        bytes = bytes < 4000 ? 4000 : bytes / 4000 * 4000 + 4000;
    // Single precision as the interface always computed it; large counts lose low digits.
    const auto count = static_cast<float>(bytes);
    double value;
    const char* unit;
    if (bytes <= 1000000) {
        value = std::round(count * 100.0F / 1000.0F) / 100.0;
        unit = "StringValue_KiloByte";
    } else if (bytes <= 1000000000) {
        value = std::round(count * 100.0F / 1000000.0F) / 100.0;
        unit = "StringValue_MegaByte";
    } else {
        value = std::round(count * 100.0F / 1000000000.0F) / 100.0;
        unit = "StringValue_GigaByte";
    }
    return formatf("%@ %@", formatNumber(value, fractDigits, UNUM_ROUND_FLOOR), localized(unit));
}

std::string sizeToStringTransformedValue(const PropertyValue& value) {
    std::uint64_t count = 0;
    if (value.isNull())
        return {};
    if (value.isString() && value.asString()->empty())
        return {};
    if (value.isNumber()) {
        count = value.toUInt64();
    } else if (const auto* array = value.asArray()) {
        for (const auto& element : *array)
            if (element.isNumber() && element.toUInt64() != UINT64_MAX)
                count += element.toUInt64();
    }
    return stringWithSize(count);
}

} // namespace corvel

#include "progress_line.h"

#include <algorithm>
#include <cmath>

#include "platform/text_format.h"
#include "report.h"

namespace corvel::cli {

std::string groupedNumber(std::uint64_t value) {
    std::string digits = std::to_string(value);
    for (int at = static_cast<int>(digits.size()) - 3; at > 0; at -= 3)
        digits.insert(static_cast<std::size_t>(at), ",");
    return digits;
}

std::optional<std::chrono::seconds> timeLeft(double percent, std::chrono::steady_clock::duration elapsed) {
    using namespace std::chrono;
    if (percent < 2 || percent >= 100 || elapsed < seconds(1))
        return std::nullopt;
    const double seconds = duration<double>(elapsed).count() * (100 - percent) / percent;
    return std::chrono::seconds(static_cast<std::int64_t>(std::ceil(seconds)));
}

std::string progressLineText(const ProgressFigures& f) {
    if (f.stage == ScanCounters::Walking)
        return "Walking: " + groupedNumber(f.folders) + (f.folders == 1 ? " folder, " : " folders, ") +
               groupedNumber(f.files) + (f.files == 1 ? " file" : " files");
    if (f.stage != ScanCounters::Comparing)
        return {};
    std::string text = "Comparing: " + groupedNumber(std::min(f.sizesDone, f.sizes)) + " of " +
                       groupedNumber(f.sizes) + (f.sizes == 1 ? " size, " : " sizes, ") +
                       sizeText(f.bytesRead) + " read, " +
                       std::to_string(static_cast<int>(std::clamp(f.percent, 0.0, 100.0))) + "%";
    if (f.left) {
        const auto total = f.left->count();
        text += total >= 3600 ? formatf(", about %ld:%02ld:%02ld left", static_cast<long>(total / 3600),
                                        static_cast<long>(total / 60 % 60), static_cast<long>(total % 60))
                              : formatf(", about %ld:%02ld left", static_cast<long>(total / 60),
                                        static_cast<long>(total % 60));
    }
    return text;
}

} // namespace corvel::cli

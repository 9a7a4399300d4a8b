#include "trash_info.h"

#include "percent_encoding.h"

namespace corvel {

std::string trashDeletionDate(std::time_t time) {
    struct tm local {};
    ::localtime_r(&time, &local);
    char buffer[32];
    const std::size_t n = std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%S", &local);
    return std::string(buffer, n);
}

std::string trashInfoText(std::string_view originalPath, std::time_t deletionTime) {
    return "[Trash Info]\nPath=" + percentEncodePath(originalPath) +
           "\nDeletionDate=" + trashDeletionDate(deletionTime) + "\n";
}

} // namespace corvel

#include "file_dates.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace corvel {

namespace {

PropertyDate dateOf(const struct statx_timestamp& time) {
    return PropertyDate{static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9};
}

std::optional<struct statx> statusOf(const std::string& path, unsigned mask) {
    struct statx st {};
    if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, mask, &st) != 0)
        return std::nullopt;
    return st;
}

} // namespace

std::optional<PropertyDate> creationDateOfPath(const std::string& path) {
    const auto st = statusOf(path, STATX_BTIME);
    if (!st || !(st->stx_mask & STATX_BTIME))
        return std::nullopt;
    return dateOf(st->stx_btime);
}

std::optional<PropertyDate> modificationDateOfPath(const std::string& path) {
    const auto st = statusOf(path, STATX_MTIME);
    if (!st || !(st->stx_mask & STATX_MTIME))
        return std::nullopt;
    return dateOf(st->stx_mtime);
}

} // namespace corvel

#pragma once
// The dates of a file as the file system keeps them; a final symbolic link is not followed.

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

#include "property_value.h"

namespace corvel {

// The birth time (statx), or nothing when the file is missing or its file system does
// not record one (tmpfs before Linux 5.x, NFS, FAT's coarse times are kept).
std::optional<PropertyDate> creationDateOfPath(const std::string& path);
// The last modification time, to the nanosecond; nothing when the file is missing.
std::optional<PropertyDate> modificationDateOfPath(const std::string& path);

// A time of a file's status in nanoseconds since 1970 (negative before).
inline std::int64_t nanosecondsSince1970(const timespec& time) {
    return time.tv_sec * std::int64_t{1000000000} + time.tv_nsec;
}

} // namespace corvel

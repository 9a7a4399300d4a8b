#pragma once
// CVError: an error as a value: a domain, an integer code and a user-info dictionary.
// Operations report failure by returning false (or an empty result) and filling an
// optional CVError* out-parameter; nothing throws across layers.

#include <cstdint>
#include <string>

#include "property_value.h"

namespace corvel {

inline constexpr const char* kLocalizedDescriptionKey = "NSLocalizedDescription";
inline constexpr const char* kFilePathErrorKey = "NSFilePath";

struct CVError {
    std::string domain;
    std::int64_t code = 0;
    PropertyValue::Dictionary userInfo;

    CVError() = default;
    CVError(std::string errorDomain, std::int64_t errorCode, std::string description = {})
        : domain(std::move(errorDomain)), code(errorCode) {
        if (!description.empty())
            userInfo[kLocalizedDescriptionKey] = std::move(description);
    }

    // The description from the user info, or "domain (code)" when there is none.
    std::string localizedDescription() const;
};

// Fills *error when error is not null; convenient at the end of a failing path.
inline void setError(CVError* error, CVError value) {
    if (error)
        *error = std::move(value);
}

// Domain for failures of the operating system; the code is the errno value.
inline constexpr const char* kPosixErrorDomain = "NSPOSIXErrorDomain";
// Domain for malformed input files (property lists, library files, settings).
inline constexpr const char* kCorvelFileErrorDomain = "com.halvik.Corvel.FileError";

// An error from errno with the path and the system's message in the description.
CVError posixError(int errnoValue, const std::string& path, const std::string& action);

} // namespace corvel

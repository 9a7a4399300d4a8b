#include "error.h"

#include <cstring>

namespace corvel {

std::string CVError::localizedDescription() const {
    auto it = userInfo.find(kLocalizedDescriptionKey);
    if (it != userInfo.end() && it->second.isString())
        return *it->second.asString();
    return domain + " (" + std::to_string(code) + ")";
}

CVError posixError(int errnoValue, const std::string& path, const std::string& action) {
    CVError error(kPosixErrorDomain, errnoValue, action + " " + path + ": " + std::strerror(errnoValue));
    error.userInfo[kFilePathErrorKey] = path;
    return error;
}

} // namespace corvel

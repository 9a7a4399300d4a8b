#include "user_notifications.h"

#include <ctime>

namespace corvel {

std::int64_t systemSeconds() {
    return static_cast<std::int64_t>(std::time(nullptr));
}

} // namespace corvel

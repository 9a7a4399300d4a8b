#include "process_limits.h"

#include <sys/resource.h>

namespace corvel {

unsigned long raiseOpenFileLimit() {
    struct rlimit limit {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return 0;
    if (limit.rlim_cur < limit.rlim_max) {
        struct rlimit raised = limit;
        raised.rlim_cur = limit.rlim_max;
        if (::setrlimit(RLIMIT_NOFILE, &raised) == 0)
            limit = raised;
    }
    return static_cast<unsigned long>(limit.rlim_cur);
}

} // namespace corvel

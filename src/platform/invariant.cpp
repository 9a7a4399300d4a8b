#include "invariant.h"

#include <cstdio>
#include <cstdlib>

namespace corvel {

void assertionFailed(const char* file, int line, const char* function, const char* condition) {
    // stdio: it needs nothing set up, and the line is out before abort.
    std::fprintf(stderr, "%s:%d: %s: assertion failed: %s\n", file, line, function, condition);
    std::fflush(stderr);
    std::abort();
}

} // namespace corvel

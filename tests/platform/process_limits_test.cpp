#include <gtest/gtest.h>
#include <sys/resource.h>

#include "platform/process_limits.h"

namespace corvel {
namespace {

TEST(ProcessLimits, TheSoftDescriptorLimitIsRaisedToTheHardOne) {
    struct rlimit before {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    if (before.rlim_max < 2 || before.rlim_max == RLIM_INFINITY)
        GTEST_SKIP() << "no finite hard limit to raise to";
    struct rlimit low = before;
    low.rlim_cur = 64;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
    EXPECT_EQ(raiseOpenFileLimit(), static_cast<unsigned long>(before.rlim_max));
    struct rlimit now {};
    ::getrlimit(RLIMIT_NOFILE, &now);
    EXPECT_EQ(now.rlim_cur, before.rlim_max);
    ::setrlimit(RLIMIT_NOFILE, &before);
}

} // namespace
} // namespace corvel

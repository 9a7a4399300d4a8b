// The assertion is on whatever the build type: these tests define NDEBUG themselves.
#ifndef NDEBUG
#define NDEBUG
#endif

#include <gtest/gtest.h>

#include "platform/invariant.h"

namespace corvel {
namespace {

int evaluations = 0;

bool counted(bool value) {
    ++evaluations;
    return value;
}

TEST(InvariantDeathTest, AFailedAssertionNamesWhereAndWhatAndAborts) {
    const int shown = 2;
    EXPECT_DEATH(CORVEL_ASSERT(shown + 1 == 4),
                 "invariant_test\\.cpp:[0-9]+: .*TestBody: assertion failed: shown \\+ 1 == 4");
}

TEST(InvariantTest, AHoldingAssertionEvaluatesItsConditionOnceAndGoesOn) {
    evaluations = 0;
    CORVEL_ASSERT(counted(true));
    EXPECT_EQ(evaluations, 1);
}

} // namespace
} // namespace corvel

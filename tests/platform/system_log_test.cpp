#include <gtest/gtest.h>
#include <thread>

#include "platform/system_log.h"

namespace corvel {
namespace {

TEST(SystemLog, CapturesFormattedLinesFromEveryThreadInnermostFirst) {
    ScopedLogCapture outer;
    systemLogf("Corvel %@ v. %@ (%@) started", "1.0", "2", "abc");
    {
        ScopedLogCapture inner;
        std::thread([] { systemLog("Scanning started"); }).join();
        EXPECT_EQ(inner.lines(), std::vector<std::string>{"Scanning started"});
    }
    EXPECT_EQ(outer.lines(), std::vector<std::string>{"Corvel 1.0 v. 2 (abc) started"});
    EXPECT_TRUE(outer.contains("v. 2"));
    EXPECT_FALSE(outer.contains("Scanning"));
}

} // namespace
} // namespace corvel

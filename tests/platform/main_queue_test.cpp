#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "platform/main_queue.h"

namespace corvel {
namespace {

using namespace std::chrono_literals;

TEST(MainQueue, TasksRunInOrderOnTheMainThread) {
    MainQueue queue;
    std::vector<int> order;
    std::thread other([&] {
        for (int i = 0; i < 3; ++i)
            queue.post([&order, i, &queue] {
                EXPECT_TRUE(queue.isMainThread());
                order.push_back(i);
            });
    });
    other.join();
    queue.post([&] { order.push_back(3); });
    EXPECT_EQ(queue.drain(), 4u);
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3}));
    EXPECT_EQ(queue.drain(), 0u);
}

TEST(MainQueue, PostAndWaitBlocksUntilTheMainThreadRanTheTask) {
    MainQueue queue;
    std::atomic<bool> ran{false};
    std::atomic<bool> returned{false};
    std::thread worker([&] {
        queue.postAndWait([&] { ran = true; });
        EXPECT_TRUE(ran);
        returned = true;
        queue.post([] {}); // wakes the main thread to see it
    });
    EXPECT_TRUE(queue.runUntil([&] { return returned.load(); }, 5s));
    worker.join();
    int inline_ = 0;
    queue.postAndWait([&] { inline_ = 1; });
    EXPECT_EQ(inline_, 1) << "on the main thread the task runs at once";
}

TEST(MainQueue, TimersFireOnceOrRepeatUntilCancelled) {
    MainQueue queue;
    int once = 0;
    int repeats = 0;
    int cancelled = 0;
    queue.scheduleTimer(5ms, [&] { ++once; });
    const auto repeating = queue.scheduleRepeatingTimer(2ms, [&] { ++repeats; });
    const auto never = queue.scheduleTimer(1ms, [&] { ++cancelled; });
    queue.cancelTimer(never);
    EXPECT_TRUE(queue.runUntil([&] { return repeats >= 3 && once == 1; }, 5s));
    queue.cancelTimer(repeating);
    const int seen = repeats;
    queue.runFor(20ms);
    EXPECT_EQ(repeats, seen);
    EXPECT_EQ(once, 1);
    EXPECT_EQ(cancelled, 0);
    MainQueue::Clock::time_point deadline;
    EXPECT_FALSE(queue.nextTimerDeadline(deadline));
}

TEST(MainQueue, StopEndsRunFromAnotherThread) {
    MainQueue queue;
    std::thread stopper([&] {
        std::this_thread::sleep_for(10ms);
        queue.post([&] { queue.stop(); });
    });
    queue.run();
    stopper.join();
    SUCCEED();
}

TEST(MainQueue, WakeUpHandlerHearsOfNewWork) {
    MainQueue queue;
    std::atomic<int> wakeUps{0};
    queue.setWakeUpHandler([&] { ++wakeUps; });
    std::thread([&] { queue.post([] {}); }).join();
    queue.scheduleTimer(1h, [] {});
    EXPECT_EQ(wakeUps, 2);
    MainQueue::Clock::time_point deadline;
    EXPECT_TRUE(queue.nextTimerDeadline(deadline));
}

} // namespace
} // namespace corvel

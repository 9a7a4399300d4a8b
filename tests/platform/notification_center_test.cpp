#include <gtest/gtest.h>
#include <thread>

#include "platform/main_queue.h"
#include "platform/notification_center.h"

namespace corvel {
namespace {

TEST(NotificationCenter, DeliversByNameAndSender) {
    NotificationCenter center;
    int a = 0;
    int b = 0;
    std::vector<std::string> all;
    const int senderA = 0;
    const int senderB = 0;
    center.addObserver("com.halvik.corvel.scanStarted", &senderA, [&](const Notification&) { ++a; });
    center.addObserver("com.halvik.corvel.scanStarted", nullptr, [&](const Notification&) { ++b; });
    center.addObserver("", nullptr, [&](const Notification& n) { all.push_back(n.name); });
    center.post("com.halvik.corvel.scanStarted", &senderA);
    center.post("com.halvik.corvel.scanStarted", &senderB);
    center.post("com.halvik.corvel.scanFinished");
    EXPECT_EQ(a, 1);
    EXPECT_EQ(b, 2);
    EXPECT_EQ(all.size(), 3u);
}

TEST(NotificationCenter, CarriesObjectAndUserInfo) {
    NotificationCenter center;
    Notification seen;
    center.addObserver("com.halvik.corvel.ProgressUpdated", nullptr,
                       [&](const Notification& n) { seen = n; });
    Notification n{"com.halvik.corvel.ProgressUpdated", nullptr, 42.5, {{"path", "/x"}}};
    center.post(n);
    EXPECT_DOUBLE_EQ(seen.object.toDouble(), 42.5);
    EXPECT_EQ(*seen.userInfo["path"].asString(), "/x");
}

TEST(NotificationCenter, AnObserverRemovedWhileDeliveringIsNotCalledAgain) {
    NotificationCenter center;
    int first = 0;
    int second = 0;
    NotificationCenter::ObserverId secondId = 0;
    const auto firstId = center.addObserver("n", nullptr, [&](const Notification&) {
        ++first;
        center.removeObserver(secondId);
    });
    secondId = center.addObserver("n", nullptr, [&](const Notification&) { ++second; });
    center.post("n");
    center.removeObserver(firstId);
    center.post("n");
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 0);
}

TEST(NotificationCenter, ScopedObserverStopsListeningWhenDestroyed) {
    NotificationCenter center;
    int count = 0;
    {
        ScopedObserver scoped(center,
                              center.addObserver("n", nullptr, [&](const Notification&) { ++count; }));
        center.post("n");
    }
    center.post("n");
    EXPECT_EQ(count, 1);
}

TEST(NotificationCenter, PostOnMainThreadFromAWorkerArrivesOnTheMainThread) {
    NotificationCenter center;
    bool onMain = false;
    int count = 0;
    center.addObserver("done", nullptr, [&](const Notification&) {
        onMain = MainQueue::shared().isMainThread();
        ++count;
    });
    std::thread worker([&] { center.postOnMainThread({"done", nullptr, {}, {}}); });
    worker.join();
    EXPECT_EQ(count, 0);
    MainQueue::shared().drain();
    EXPECT_EQ(count, 1);
    EXPECT_TRUE(onMain);

    std::thread waiter([&] { center.postOnMainThread({"done", nullptr, {}, {}}, true); });
    EXPECT_TRUE(MainQueue::shared().runUntil([&] { return count == 2; }, std::chrono::seconds(5)));
    waiter.join();
}

} // namespace
} // namespace corvel

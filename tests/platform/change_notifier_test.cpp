#include <gtest/gtest.h>
#include <thread>

#include "platform/change_notifier.h"
#include "platform/main_queue.h"

namespace corvel {
namespace {

TEST(ChangeNotifier, WillAndDidReachObserversOfTheKey) {
    ChangeNotifier notifier;
    std::vector<std::pair<std::string, ChangePhase>> seen;
    notifier.addObserver("filesToRemoveCount", [&](std::string_view key, ChangePhase phase) {
        seen.emplace_back(std::string(key), phase);
    });
    int any = 0;
    notifier.addObserver("", [&](std::string_view, ChangePhase) { ++any; });
    notifier.willChangeValueForKey("filesToRemoveCount");
    notifier.didChangeValueForKey("filesToRemoveCount");
    notifier.didChangeValueForKey("totalSize");
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].second, ChangePhase::Will);
    EXPECT_EQ(seen[1].second, ChangePhase::Did);
    EXPECT_EQ(any, 3);
}

TEST(ChangeNotifier, ChangesOnAnotherThreadAreQueuedForTheMainThread) {
    ChangeNotifier notifier;
    int count = 0;
    bool onMain = false;
    notifier.addObserver("removedFilesCount", [&](std::string_view, ChangePhase) {
        ++count;
        onMain = MainQueue::shared().isMainThread();
    });
    std::thread writer([&] { notifier.didChangeValueForKey("removedFilesCount"); });
    writer.join();
    EXPECT_EQ(count, 0);
    MainQueue::shared().drain();
    EXPECT_EQ(count, 1);
    EXPECT_TRUE(onMain);
}

TEST(ChangeNotifier, NoticesQueuedBeforeTheNotifierDiedAreDropped) {
    int count = 0;
    {
        auto notifier = std::make_unique<ChangeNotifier>();
        notifier->addObserver("k", [&](std::string_view, ChangePhase) { ++count; });
        std::thread([&] { notifier->didChangeValueForKey("k"); }).join();
    }
    MainQueue::shared().drain();
    EXPECT_EQ(count, 0);
}

} // namespace
} // namespace corvel

#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "platform/main_queue.h"
#include "platform/property_list.h"
#include "platform/system_log.h"
#include "platform/user_defaults.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

using namespace std::chrono_literals;

PropertyValue readFile(const std::string& path) {
    PropertyValue v;
    EXPECT_TRUE(readPropertyListFile(path, v, nullptr)) << path;
    return v;
}

TEST(UserDefaults, TypedValuesSurviveAReopen) {
    test::TempTree tree;
    const std::string path = tree / "config/corvel/com.halvik.Corvel.plist";
    {
        UserDefaults defaults(path);
        defaults.setBool(true, "MoveIntoTrash");
        defaults.setInteger(-12, "Signed");
        defaults.setUnsignedInteger(UINT64_MAX, "Unsigned");
        defaults.setDouble(0.125, "Double");
        defaults.setFloat(2.5F, "Float");
        defaults.setObject("Grüße", "String");
        defaults.setObject(PropertyValue::Array{"/a", "/b"}, "AutoselectList");
        defaults.setObject(PropertyValue::Dictionary{{"FilePathes", PropertyValue::Array{}}}, "IgnoreList");
        defaults.setObject(PropertyValue::Data{9, 8, 7}, "Data");
        defaults.setObject(PropertyDate{1700000000}, "Date");
        CVError error;
        ASSERT_TRUE(defaults.synchronize(&error)) << error.localizedDescription();
    }
    UserDefaults again(path);
    EXPECT_TRUE(again.boolForKey("MoveIntoTrash"));
    EXPECT_EQ(again.integerForKey("Signed"), -12);
    EXPECT_EQ(again.unsignedIntegerForKey("Unsigned"), UINT64_MAX);
    EXPECT_DOUBLE_EQ(again.doubleForKey("Double"), 0.125);
    EXPECT_FLOAT_EQ(again.floatForKey("Float"), 2.5F);
    EXPECT_EQ(again.stringForKey("String"), "Grüße");
    EXPECT_EQ(again.arrayForKey("AutoselectList")->size(), 2u);
    EXPECT_TRUE(again.dictionaryForKey("IgnoreList")->count("FilePathes"));
    EXPECT_EQ(*again.dataForKey("Data"), (PropertyValue::Data{9, 8, 7}));
    EXPECT_DOUBLE_EQ(again.dateForKey("Date")->secondsSince1970, 1700000000);
    EXPECT_FALSE(again.arrayForKey("String").has_value());
    EXPECT_FALSE(again.stringForKey("Missing").has_value());
}

TEST(UserDefaults, RegisteredDefaultsAnswerReadsButAreNeverWritten) {
    test::TempTree tree;
    const std::string path = tree / "d.plist";
    UserDefaults defaults(path);
    defaults.registerDefaults({{"MinScanSize", 10}, {"MoveIntoTrash", true}});
    EXPECT_EQ(defaults.integerForKey("MinScanSize"), 10);
    EXPECT_FALSE(defaults.hasStoredValueForKey("MinScanSize"));
    defaults.setInteger(20, "MinScanSize");
    ASSERT_TRUE(defaults.synchronize());
    const PropertyValue file = readFile(path);
    EXPECT_EQ(file["MinScanSize"].toInt64(), 20);
    EXPECT_TRUE(file["MoveIntoTrash"].isNull());
    defaults.removeObjectForKey("MinScanSize");
    EXPECT_EQ(defaults.integerForKey("MinScanSize"), 10);
    ASSERT_TRUE(defaults.synchronize());
    EXPECT_EQ(readFile(path).count(), 0u);
}

TEST(UserDefaults, NothingIsWrittenUntilSomethingChanges) {
    test::TempTree tree;
    UserDefaults defaults(tree / "never.plist");
    defaults.registerDefaults({{"A", 1}});
    ASSERT_TRUE(defaults.synchronize());
    EXPECT_NE(::access((tree / "never.plist").c_str(), F_OK), 0);
}

TEST(UserDefaults, ObserversHearEachRealChangeOnceOnTheMainQueue) {
    test::TempTree tree;
    UserDefaults defaults(tree / "o.plist");
    defaults.registerDefaults({{"MinScanSize", 5}});
    std::vector<std::pair<std::int64_t, std::int64_t>> seen;
    bool onMain = true;
    defaults.addObserver("MinScanSize", [&](const PropertyValue& o, const PropertyValue& n) {
        onMain = onMain && MainQueue::shared().isMainThread();
        seen.emplace_back(o.toInt64(), n.toInt64());
    });
    defaults.setInteger(5, "MinScanSize"); // stored now, but the value is the same
    defaults.setInteger(5, "MinScanSize"); // no change at all
    defaults.setInteger(7, "MinScanSize");
    defaults.setObject("x", "Other"); // another key
    std::thread writer([&] { defaults.setInteger(9, "MinScanSize"); });
    writer.join();
    EXPECT_EQ(seen.size(), 1u) << "a change from another thread waits for the main queue";
    MainQueue::shared().drain();
    defaults.removeObjectForKey("MinScanSize"); // back to the registered 5
    const std::vector<std::pair<std::int64_t, std::int64_t>> expected{{5, 7}, {7, 9}, {9, 5}};
    EXPECT_EQ(seen, expected);
    EXPECT_TRUE(onMain);
}

TEST(UserDefaults, ACorruptFileIsKeptAsideAndTheStoreStartsEmpty) {
    test::TempTree tree;
    const std::string path = tree.file("c.plist", "<plist><dict><key>MinScanSize</key><integer>3</integer>");
    tree.file("c.plist.corrupt", "an older corrupt file");
    ScopedLogCapture log;
    UserDefaults defaults(path);
    EXPECT_TRUE(defaults.objectForKey("MinScanSize").isNull());
    EXPECT_TRUE(log.contains("corrupt"));
    EXPECT_EQ(test::TempTree::read(tree / "c.plist.corrupt"), "an older corrupt file");
    EXPECT_EQ(test::TempTree::read(tree / "c.plist.corrupt-2"),
              "<plist><dict><key>MinScanSize</key><integer>3</integer>");
    defaults.setInteger(4, "MinScanSize");
    ASSERT_TRUE(defaults.synchronize());
    EXPECT_EQ(readFile(path)["MinScanSize"].toInt64(), 4);
}

TEST(UserDefaults, AListThatIsNotADictionaryCountsAsCorrupt) {
    test::TempTree tree;
    const std::string path =
        tree.file("a.plist", propertyListData(PropertyValue::Array{1}, PropertyListFormat::XML));
    UserDefaults defaults(path);
    EXPECT_EQ(::access((path + ".corrupt").c_str(), F_OK), 0);
}

TEST(UserDefaults, AWriterKilledMidFlushLeavesTheOldOrTheNewFile) {
    test::TempTree tree;
    const std::string path = tree / "k.plist";
    const std::string big(300000, 'x');
    {
        UserDefaults first(path);
        first.setObject("generation-0", "Generation");
        ASSERT_TRUE(first.synchronize());
    }
    for (int round = 0; round < 12; ++round) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            UserDefaults writer(path);
            for (int generation = 1;; ++generation) {
                writer.setObject(big + std::to_string(generation), "Payload");
                writer.setObject("generation-" + std::to_string(generation), "Generation");
                writer.synchronize();
            }
        }
        std::this_thread::sleep_for(std::chrono::microseconds(2000 + 3700 * round));
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        PropertyValue file;
        CVError error;
        ASSERT_TRUE(readPropertyListFile(path, file, &error))
            << "round " << round << ": " << error.localizedDescription();
        const std::string generation = *file["Generation"].asString();
        if (generation != "generation-0") {
            // Payload and generation were written together: they must agree.
            EXPECT_EQ(*file["Payload"].asString(), big + generation.substr(generation.find('-') + 1));
        }
    }
}

TEST(UserDefaults, DefaultPathFollowsTheEnvironment) {
    const char* savedSettings = std::getenv("CORVEL_SETTINGS");
    const char* savedConfig = std::getenv("XDG_CONFIG_HOME");
    ::setenv("XDG_CONFIG_HOME", "/tmp/xdg-config", 1);
    ::unsetenv("CORVEL_SETTINGS");
    EXPECT_EQ(UserDefaults::defaultPath(), "/tmp/xdg-config/corvel/com.halvik.Corvel.plist");
    ::setenv("CORVEL_SETTINGS", "/tmp/other.plist", 1);
    EXPECT_EQ(UserDefaults::defaultPath(), "/tmp/other.plist");
    savedSettings ? ::setenv("CORVEL_SETTINGS", savedSettings, 1) : ::unsetenv("CORVEL_SETTINGS");
    savedConfig ? ::setenv("XDG_CONFIG_HOME", savedConfig, 1) : ::unsetenv("XDG_CONFIG_HOME");
}

} // namespace
} // namespace corvel

#include <algorithm>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "platform/main_queue.h"
#include "platform/property_list.h"
#include "platform/system_log.h"
#include "platform/user_defaults.h"
#include "support/other_user.h"
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

// Options of one run: they decide every read, and the file keeps the user's values.
TEST(UserDefaults, VolatileValuesWinButAreNeverWritten) {
    test::TempTree tree;
    const std::string path = tree / "d.plist";
    UserDefaults defaults(path);
    defaults.registerDefaults({{"MinScanSize", 10}});
    defaults.setObject("user's", "IgnoreRegexpString");
    ASSERT_TRUE(defaults.synchronize());
    defaults.setVolatileObject("(user's)|(this run)", "IgnoreRegexpString");
    defaults.setVolatileObject(PropertyValue::Array{"/run"}, "AutoselectList");
    defaults.setVolatileObject(30, "MinScanSize");
    EXPECT_EQ(defaults.stringForKey("IgnoreRegexpString"), "(user's)|(this run)");
    EXPECT_EQ(defaults.arrayForKey("AutoselectList")->size(), 1u);
    EXPECT_EQ(defaults.integerForKey("MinScanSize"), 30);
    defaults.setInteger(20, "MinScanSize"); // a change the user makes meanwhile is kept
    EXPECT_EQ(defaults.integerForKey("MinScanSize"), 30);
    ASSERT_TRUE(defaults.synchronize());
    const PropertyValue file = readFile(path);
    EXPECT_EQ(file["IgnoreRegexpString"].toString(), "user's");
    EXPECT_TRUE(file["AutoselectList"].isNull());
    EXPECT_EQ(file["MinScanSize"].toInt64(), 20);
    defaults.setVolatileObject(PropertyValue(), "MinScanSize");
    EXPECT_EQ(defaults.integerForKey("MinScanSize"), 20);
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

// What a folder holds: each name with its kind and its content or link target.
std::map<std::string, std::string> snapshot(const std::string& folder) {
    std::map<std::string, std::string> entries;
    DIR* dir = ::opendir(folder.c_str());
    while (const dirent* entry = dir ? ::readdir(dir) : nullptr) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        const std::string path = folder + "/" + name;
        struct stat st {};
        ::lstat(path.c_str(), &st);
        if (S_ISLNK(st.st_mode)) {
            char target[PATH_MAX] = {};
            if (::readlink(path.c_str(), target, sizeof target - 1) < 0)
                target[0] = '\0';
            entries[name] = std::string("link to ") + target;
        } else if (S_ISREG(st.st_mode)) {
            entries[name] = "file " + test::TempTree::read(path);
        } else {
            entries[name] = S_ISDIR(st.st_mode) ? "folder" : "other";
        }
    }
    if (dir)
        ::closedir(dir);
    return entries;
}

using FileOrigin = UserDefaults::FileOrigin;
using FileState = UserDefaults::FileState;

struct FileCase {
    std::string name;
    // Makes the thing at <folder>/settings.plist.
    std::function<void(const test::TempTree&)> make;
    FileOrigin origin;
    FileState state;
};

void PrintTo(const FileCase& c, std::ostream* os) {
    *os << c.name;
}

class SettingsFileOnOpening : public testing::TestWithParam<FileCase> {
protected:
    test::TempTree tree;
};

// Whatever is at the path, the store never loses what was there: a file it cannot
// read, and a file the user named that is not a settings file, stay byte for byte;
// only the program's own damaged file is set aside under a timestamped name.
TEST_P(SettingsFileOnOpening, NeverLosesWhatWasThere) {
    const auto& c = GetParam();
    tree.folder("settings");
    c.make(tree);
    const std::string folder = tree / "settings";
    const std::string path = folder + "/settings.plist";
    const auto before = snapshot(folder);
    ScopedLogCapture log;
    bool saved = false;
    {
        UserDefaults defaults(path, c.origin);
        EXPECT_EQ(defaults.fileState(), c.state) << defaults.fileError().localizedDescription();
        EXPECT_EQ(defaults.isReadOnly(),
                  c.state == FileState::Unreadable || c.state == FileState::NotASettingsFile);
        // A face that opens its window later still has the sentence to show.
        EXPECT_EQ(defaults.openingProblem().empty(),
                  c.state == FileState::Loaded || c.state == FileState::Missing)
            << defaults.openingProblem();
        if (!defaults.openingProblem().empty()) {
            EXPECT_TRUE(defaults.openingProblem().starts_with("Settings file " + path))
                << defaults.openingProblem();
        }
        defaults.setObject("written", "Probe");
        EXPECT_EQ(defaults.stringForKey("Probe"), "written") << "changes apply in memory in every case";
        CVError error;
        saved = defaults.synchronize(&error);
    } // and the store's own save on the way out
    const auto after = snapshot(folder);
    switch (c.state) {
    case FileState::Unreadable:
    case FileState::NotASettingsFile:
        EXPECT_FALSE(saved);
        EXPECT_EQ(after, before);
        break;
    case FileState::Loaded:
    case FileState::Missing: {
        EXPECT_TRUE(saved);
        EXPECT_EQ(readFile(path)["Probe"].toString(), "written");
        for (const auto& [name, what] : before) {
            if (what.starts_with("link to")) {
                EXPECT_EQ(after.at(name), what) << "a link is written through, not replaced";
            }
        }
        break;
    }
    case FileState::SetAside: {
        EXPECT_TRUE(saved);
        EXPECT_EQ(readFile(path)["Probe"].toString(), "written");
        // The damaged file's bytes, now under settings.plist.corrupt-YYYYMMDD-HHMMSS.
        // Behind a link the file it points to is the damaged one; the link stays.
        const std::string damagedName =
            before.at("settings.plist").starts_with("link to ") ? "target" : "settings.plist";
        const std::string& damaged = before.at(damagedName);
        std::size_t asides = 0;
        for (const auto& [name, what] : after) {
            if (before.contains(name) && name != damagedName) {
                EXPECT_EQ(what, before.at(name)) << name;
            }
            if (!name.starts_with(damagedName + ".corrupt-"))
                continue;
            ++asides;
            EXPECT_EQ(what, damaged);
            const std::string stamp = name.substr(damagedName.size() + 9);
            EXPECT_EQ(stamp.size(), 15u) << name;
            EXPECT_EQ(stamp.find_first_not_of("0123456789-"), std::string::npos) << name;
            EXPECT_TRUE(log.contains("it is kept as " + folder + "/" + name))
                << testing::PrintToString(log.lines());
        }
        EXPECT_EQ(asides, 1u) << testing::PrintToString(after);
        break;
    }
    }
    if (c.state == FileState::Unreadable) {
        EXPECT_TRUE(log.contains("could not be read")) << testing::PrintToString(log.lines());
    }
}

void writeIn(const test::TempTree& tree, const std::string& name, const std::string& bytes) {
    tree.file("settings/" + name, bytes);
}
const std::string kShellScript = "# ~/.bashrc\nexport PATH=\"$HOME/bin:$PATH\"\n";
const std::string kGarbled = "<plist><dict><key>MinScanSize</key><integer>3</integer>";

auto garbled = [](const test::TempTree& t) { writeIn(t, "settings.plist", kGarbled); };
auto topLevelArray = [](const test::TempTree& t) {
    writeIn(t, "settings.plist", propertyListData(PropertyValue::Array{1}, PropertyListFormat::XML));
};
auto emptyFile = [](const test::TempTree& t) { writeIn(t, "settings.plist", ""); };
// libplist aborted the process on a string holding a NUL.
auto nulString = [](const test::TempTree& t) {
    static const char kNul[] = "<plist><dict><key>A</key><string>a\0b</string></dict></plist>";
    writeIn(t, "settings.plist", std::string(kNul, sizeof kNul - 1));
};
auto linkToAScript = [](const test::TempTree& t) {
    writeIn(t, "target", kShellScript);
    t.symlink("settings/settings.plist", t / "settings/target");
};
auto folderInstead = [](const test::TempTree& t) { t.folder("settings/settings.plist/inside"); };
auto fifoInstead = [](const test::TempTree& t) { ::mkfifo((t / "settings/settings.plist").c_str(), 0600); };
auto danglingLink = [](const test::TempTree& t) {
    t.symlink("settings/settings.plist", t / "settings/gone");
};
auto linkToSettings = [](const test::TempTree& t) {
    writeIn(t, "target", propertyListData(PropertyValue::Dictionary{{"A", 1}}, PropertyListFormat::XML));
    t.symlink("settings/settings.plist", "target");
};
auto nothing = [](const test::TempTree&) {};

INSTANTIATE_TEST_SUITE_P(
    Cases, SettingsFileOnOpening,
    testing::Values(
        FileCase{"NamedGarbled", garbled, FileOrigin::NamedByUser, FileState::NotASettingsFile},
        FileCase{"OwnGarbled", garbled, FileOrigin::OwnDefault, FileState::SetAside},
        FileCase{"NamedArray", topLevelArray, FileOrigin::NamedByUser, FileState::NotASettingsFile},
        FileCase{"OwnArray", topLevelArray, FileOrigin::OwnDefault, FileState::SetAside},
        FileCase{"NamedNulString", nulString, FileOrigin::NamedByUser, FileState::NotASettingsFile},
        FileCase{"OwnNulString", nulString, FileOrigin::OwnDefault, FileState::SetAside},
        FileCase{"NamedEmpty", emptyFile, FileOrigin::NamedByUser, FileState::NotASettingsFile},
        FileCase{"OwnEmpty", emptyFile, FileOrigin::OwnDefault, FileState::SetAside},
        FileCase{"NamedLinkToAScript", linkToAScript, FileOrigin::NamedByUser, FileState::NotASettingsFile},
        FileCase{"OwnLinkToAScript", linkToAScript, FileOrigin::OwnDefault, FileState::SetAside},
        FileCase{"NamedFolder", folderInstead, FileOrigin::NamedByUser, FileState::NotASettingsFile},
        FileCase{"OwnFolder", folderInstead, FileOrigin::OwnDefault, FileState::Unreadable},
        FileCase{"NamedFifo", fifoInstead, FileOrigin::NamedByUser, FileState::NotASettingsFile},
        FileCase{"OwnFifo", fifoInstead, FileOrigin::OwnDefault, FileState::Unreadable},
        FileCase{"NamedDanglingLink", danglingLink, FileOrigin::NamedByUser, FileState::Unreadable},
        FileCase{"OwnDanglingLink", danglingLink, FileOrigin::OwnDefault, FileState::Unreadable},
        FileCase{"NamedLinkToSettings", linkToSettings, FileOrigin::NamedByUser, FileState::Loaded},
        FileCase{"OwnLinkToSettings", linkToSettings, FileOrigin::OwnDefault, FileState::Loaded},
        FileCase{"NamedMissing", nothing, FileOrigin::NamedByUser, FileState::Missing}),
    [](const testing::TestParamInfo<FileCase>& param) { return param.param.name; });

// Another program saves the same file while this store holds changes of its own.
struct ConcurrentSave {
    std::string name;
    std::function<void(UserDefaults&)> ours;
    // What the other program does to the file after this store opened it.
    std::function<void(const std::string& path)> theirs;
    // The file after this store's save; null when the save must be refused.
    PropertyValue expected;
};

void PrintTo(const ConcurrentSave& c, std::ostream* os) {
    *os << c.name;
}

void otherProgram(const std::string& path, const std::function<void(UserDefaults&)>& change) {
    UserDefaults theirs(path);
    change(theirs);
    ASSERT_TRUE(theirs.synchronize());
}

void overwrite(const std::string& path, const std::string& text) {
    std::FILE* out = std::fopen(path.c_str(), "w");
    ASSERT_NE(out, nullptr);
    std::fputs(text.c_str(), out);
    std::fclose(out);
}

class SettingsSavedBesideAnotherProgram : public testing::TestWithParam<ConcurrentSave> {};

TEST_P(SettingsSavedBesideAnotherProgram, KeepsTheOtherProgramsKeys) {
    const auto& c = GetParam();
    test::TempTree tree;
    const std::string path = tree / "settings.plist";
    {
        UserDefaults first(path);
        first.setObject("mine", "Mine");
        first.setObject("theirs", "Theirs");
        first.setInteger(1, "Shared");
        ASSERT_TRUE(first.synchronize());
    }
    UserDefaults ours(path);
    c.ours(ours);
    c.theirs(path);
    const std::string before = test::TempTree::read(path);
    CVError error;
    const bool saved = ours.synchronize(&error);
    if (c.expected.isNull()) {
        EXPECT_FALSE(saved);
        EXPECT_NE(error.localizedDescription().find("not written"), std::string::npos)
            << error.localizedDescription();
        EXPECT_EQ(test::TempTree::read(path), before) << "the file is left as the other program wrote it";
        return;
    }
    ASSERT_TRUE(saved) << error.localizedDescription();
    EXPECT_EQ(readFile(path), c.expected);
    // Saved once: a later save with nothing new does not put our value back over theirs.
    otherProgram(path, [](UserDefaults& d) { d.setObject("after", "Mine"); });
    ASSERT_TRUE(ours.synchronize());
    EXPECT_EQ(readFile(path)["Mine"].toString(), "after");
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SettingsSavedBesideAnotherProgram,
    testing::Values(
        ConcurrentSave{
            "TheirNewKeyStays", [](UserDefaults& d) { d.setObject("changed", "Mine"); },
            [](const std::string& p) {
                otherProgram(p, [](UserDefaults& d) { d.setInteger(6, "SchedulerInterval"); });
            },
            PropertyValue::Dictionary{
                {"Mine", "changed"}, {"Theirs", "theirs"}, {"Shared", 1}, {"SchedulerInterval", 6}}},
        ConcurrentSave{"TheirChangeStays", [](UserDefaults& d) { d.setObject("changed", "Mine"); },
                       [](const std::string& p) {
                           otherProgram(p, [](UserDefaults& d) { d.setBool(false, "Theirs"); });
                       },
                       PropertyValue::Dictionary{{"Mine", "changed"}, {"Theirs", false}, {"Shared", 1}}},
        ConcurrentSave{"TheirRemovalStays", [](UserDefaults& d) { d.setObject("changed", "Mine"); },
                       [](const std::string& p) {
                           otherProgram(p, [](UserDefaults& d) { d.removeObjectForKey("Theirs"); });
                       },
                       PropertyValue::Dictionary{{"Mine", "changed"}, {"Shared", 1}}},
        ConcurrentSave{
            "OurRemovalIsSaved", [](UserDefaults& d) { d.removeObjectForKey("Mine"); },
            [](const std::string& p) { otherProgram(p, [](UserDefaults& d) { d.setInteger(2, "Extra"); }); },
            PropertyValue::Dictionary{{"Theirs", "theirs"}, {"Shared", 1}, {"Extra", 2}}},
        ConcurrentSave{
            "TheLastSaveOfOneKeyWins", [](UserDefaults& d) { d.setInteger(3, "Shared"); },
            [](const std::string& p) { otherProgram(p, [](UserDefaults& d) { d.setInteger(2, "Shared"); }); },
            PropertyValue::Dictionary{{"Mine", "mine"}, {"Theirs", "theirs"}, {"Shared", 3}}},
        ConcurrentSave{"ARemovedFileGetsOnlyOurChanges",
                       [](UserDefaults& d) { d.setObject("changed", "Mine"); },
                       [](const std::string& p) { ASSERT_EQ(::unlink(p.c_str()), 0); },
                       PropertyValue::Dictionary{{"Mine", "changed"}}},
        ConcurrentSave{"AFileThatIsNoLongerSettingsIsNotWritten",
                       [](UserDefaults& d) { d.setObject("changed", "Mine"); },
                       [](const std::string& p) { overwrite(p, "not a property list"); }, PropertyValue()}),
    [](const testing::TestParamInfo<ConcurrentSave>& param) { return param.param.name; });

// Two runs at once, each adding to a running total and to a list of records: the file
// keeps what both added, and each store then holds what was written.
TEST(UserDefaults, MergedKeysKeepWhatAnotherProgramAddedMeanwhile) {
    using SaveMerge = UserDefaults::SaveMerge;
    const PropertyValue::Dictionary a{{"n", 1}};
    const struct {
        const char* name;
        SaveMerge merge;
        PropertyValue before; // in the file when both programs read it
        std::function<PropertyValue(const PropertyValue&)> ours, theirs;
        PropertyValue expected;
    } cases[] = {
        {"a total", SaveMerge::Sum, 100,
         [](const PropertyValue& v) { return PropertyValue(v.toInt64() + 30); },
         [](const PropertyValue& v) { return PropertyValue(v.toInt64() + 50); }, 180},
        {"a total that was not a number", SaveMerge::Sum, "lots",
         [](const PropertyValue&) { return PropertyValue(30); }, [](const PropertyValue& v) { return v; },
         30},
        {"records", SaveMerge::ArrayByIndex, PropertyValue::Array{a},
         [](const PropertyValue& v) {
             PropertyValue::Array records = *v.asArray();
             records[0].set("done", true); // ours finishes the record both read
             records.emplace_back(PropertyValue::Dictionary{{"n", 2}});
             return PropertyValue(records);
         },
         [](const PropertyValue& v) {
             PropertyValue::Array records = *v.asArray();
             records.emplace_back(PropertyValue::Dictionary{{"n", 3}});
             return PropertyValue(records);
         },
         PropertyValue::Array{PropertyValue::Dictionary{{"n", 1}, {"done", true}},
                              PropertyValue::Dictionary{{"n", 3}}, PropertyValue::Dictionary{{"n", 2}}}},
        {"without a merge the last save wins", SaveMerge::Replace, 100,
         [](const PropertyValue& v) { return PropertyValue(v.toInt64() + 30); },
         [](const PropertyValue& v) { return PropertyValue(v.toInt64() + 50); }, 130},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        test::TempTree tree;
        const std::string path = tree / "settings.plist";
        {
            UserDefaults first(path);
            first.setObject(c.before, "Key");
            ASSERT_TRUE(first.synchronize());
        }
        UserDefaults ours(path);
        ours.setSaveMerge("Key", c.merge);
        ours.setObject(c.ours(ours.objectForKey("Key")), "Key");
        otherProgram(path, [&](UserDefaults& theirs) {
            theirs.setSaveMerge("Key", c.merge);
            theirs.setObject(c.theirs(theirs.objectForKey("Key")), "Key");
        });
        ASSERT_TRUE(ours.synchronize());
        EXPECT_EQ(readFile(path)["Key"], c.expected) << readFile(path)["Key"].description();
        EXPECT_EQ(ours.objectForKey("Key"), c.expected) << "the store holds what was written";
        // Nothing new: a second save leaves the file as it is.
        ASSERT_TRUE(ours.synchronize());
        EXPECT_EQ(readFile(path)["Key"], c.expected);
    }
}

// The user puts a link in the file's place while the program runs (a dotfile manager
// taking the file over): the save goes through the link, which stays; a link into a
// folder that is gone is not written over.
TEST(UserDefaults, ALinkPutInTheFilesPlaceMeanwhileIsWrittenThrough) {
    test::TempTree tree;
    const std::string path =
        tree.file("settings.plist",
                  propertyListData(PropertyValue::Dictionary{{"Mine", "mine"}}, PropertyListFormat::XML));
    const std::string managed =
        tree.file("dotfiles/corvel.plist",
                  propertyListData(PropertyValue::Dictionary{{"Theirs", "theirs"}}, PropertyListFormat::XML));
    UserDefaults ours(path);
    ours.setObject("changed", "Mine");
    ASSERT_EQ(::unlink(path.c_str()), 0);
    ASSERT_EQ(::symlink(managed.c_str(), path.c_str()), 0);
    ASSERT_TRUE(ours.synchronize());
    struct stat st {};
    ASSERT_EQ(::lstat(path.c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode)) << "the link stays";
    EXPECT_EQ(readFile(managed),
              PropertyValue(PropertyValue::Dictionary{{"Theirs", "theirs"}, {"Mine", "changed"}}));

    ASSERT_EQ(::unlink(managed.c_str()), 0);
    ASSERT_EQ(::rmdir((tree / "dotfiles").c_str()), 0);
    ours.setObject("again", "Mine");
    CVError error;
    EXPECT_FALSE(ours.synchronize(&error));
    EXPECT_NE(error.localizedDescription().find("leads nowhere"), std::string::npos)
        << error.localizedDescription();
    ASSERT_EQ(::lstat(path.c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode)) << "the dangling link is not replaced by a file";
}

// A file nobody may write is the user's word that it stays as it is, whoever runs us
// (root too), also when reached through a link; made writable again, it is written.
TEST(UserDefaults, AReadOnlyFileIsNeverWritten) {
    for (const bool throughLink : {false, true}) {
        SCOPED_TRACE(throughLink ? "through a link" : "the file itself");
        test::TempTree tree;
        const std::string original =
            propertyListData(PropertyValue::Dictionary{{"Mine", "mine"}}, PropertyListFormat::XML);
        const std::string file = tree.file("frozen.plist", original);
        const std::string path = throughLink ? tree.symlink("settings.plist", file) : file;
        ASSERT_EQ(::chmod(file.c_str(), 0444), 0);
        UserDefaults ours(path);
        EXPECT_EQ(ours.stringForKey("Mine"), "mine");
        EXPECT_EQ(ours.openingProblem(),
                  "Settings file " + path + " is read-only: what is changed in this run is not kept");
        ours.setObject("changed", "Mine");
        CVError error;
        EXPECT_FALSE(ours.synchronize(&error));
        EXPECT_NE(error.localizedDescription().find("is read-only, so it is not written"), std::string::npos)
            << error.localizedDescription();
        EXPECT_EQ(test::TempTree::read(file), original);
        ASSERT_EQ(::chmod(file.c_str(), 0644), 0);
        EXPECT_TRUE(ours.synchronize());
        EXPECT_EQ(readFile(file), PropertyValue(PropertyValue::Dictionary{{"Mine", "changed"}}));
    }
}

TEST(UserDefaults, ASetAsideFileNeverGoesOverAnEarlierOne) {
    test::TempTree tree;
    const std::string path = tree.file("c.plist", kGarbled);
    // Earlier damaged files under this second's name and the next one's.
    std::vector<std::string> earlier;
    for (std::time_t t = std::time(nullptr), end = t + 2; t < end; ++t) {
        std::tm local{};
        ::localtime_r(&t, &local);
        char stamp[32];
        std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &local);
        earlier.push_back(tree.file(std::string("c.plist.corrupt-") + stamp, "an older damaged file"));
    }
    UserDefaults defaults(path, FileOrigin::OwnDefault);
    ASSERT_EQ(defaults.fileState(), FileState::SetAside);
    for (const auto& file : earlier)
        EXPECT_EQ(test::TempTree::read(file), "an older damaged file");
    EXPECT_EQ(test::TempTree::read(defaults.setAsidePath()), kGarbled);
    EXPECT_TRUE(defaults.objectForKey("MinScanSize").isNull()) << "the store starts empty";
}

// What a run killed between writing its temporary and renaming it leaves beside the
// settings file, and what else may be there. Only our own stale temporaries go.
struct Leftover {
    const char* label;
    std::string name;
    enum class Kind { File, Link, Folder, HardLinked } kind = Kind::File;
    int ageSeconds = 120;
    bool lockedByAWriter = false;
    bool settingsAreDamaged = false; // a file the user named that is not a settings file
    bool throughALink = false;       // the settings path is a link to the real file
    bool removed = false;
};

void PrintTo(const Leftover& l, std::ostream* os) {
    *os << l.label;
}

class LeftoverBesideTheSettings : public testing::TestWithParam<Leftover> {};

TEST_P(LeftoverBesideTheSettings, IsRemovedOnlyWhenItIsOurStaleTemporary) {
    const Leftover& c = GetParam();
    test::TempTree tree;
    const std::string settings =
        c.settingsAreDamaged
            ? kGarbled
            : propertyListData(PropertyValue::Dictionary{{"MinScanSize", 3}}, PropertyListFormat::XML);
    const std::string real = tree.file("config/settings.plist", settings);
    const std::string path = c.throughALink ? tree.symlink("link.plist", real) : real;
    const std::string leftover = tree / ("config/" + c.name);
    const std::string elsewhere = tree.file("elsewhere.txt", "not ours");
    switch (c.kind) {
    case Leftover::Kind::File:
        tree.file("config/" + c.name, settings);
        break;
    case Leftover::Kind::Link:
        tree.symlink("config/" + c.name, elsewhere);
        break;
    case Leftover::Kind::Folder:
        tree.folder("config/" + c.name);
        break;
    case Leftover::Kind::HardLinked:
        ASSERT_EQ(::link(elsewhere.c_str(), leftover.c_str()), 0);
        break;
    }
    const struct timespec then[2] = {{std::time(nullptr) - c.ageSeconds, 0},
                                     {std::time(nullptr) - c.ageSeconds, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, leftover.c_str(), then, AT_SYMLINK_NOFOLLOW), 0);
    int lockFd = -1;
    if (c.lockedByAWriter) {
        lockFd = ::open(leftover.c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_EQ(::flock(lockFd, LOCK_EX), 0);
    }
    {
        ScopedLogCapture log;
        UserDefaults defaults(path);
        EXPECT_EQ(defaults.isReadOnly(), c.settingsAreDamaged);
    }
    if (lockFd >= 0)
        ::close(lockFd);
    struct stat st {};
    EXPECT_EQ(::lstat(leftover.c_str(), &st) != 0, c.removed) << leftover;
    EXPECT_EQ(test::TempTree::read(real), settings) << "the settings file itself is never touched";
    EXPECT_EQ(test::TempTree::read(elsewhere), "not ours");
    if (c.throughALink) {
        ASSERT_EQ(::lstat(path.c_str(), &st), 0);
        EXPECT_TRUE(S_ISLNK(st.st_mode));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Leftovers, LeftoverBesideTheSettings,
    testing::Values(
        Leftover{"a stale temporary", "settings.plist.tmp-Ab3xZ9", Leftover::Kind::File, 120, false, false,
                 false, true},
        Leftover{"a stale temporary beside the file a link points to", "settings.plist.tmp-Ab3xZ9",
                 Leftover::Kind::File, 120, false, false, true, true},
        Leftover{"a fresh temporary: a writer may be at work", "settings.plist.tmp-Ab3xZ9",
                 Leftover::Kind::File, 5},
        Leftover{"a stale temporary a live writer holds", "settings.plist.tmp-Ab3xZ9", Leftover::Kind::File,
                 120, true},
        Leftover{"beside a file that is not a settings file", "settings.plist.tmp-Ab3xZ9",
                 Leftover::Kind::File, 120, false, true},
        Leftover{"five characters", "settings.plist.tmp-Ab3xZ"},
        Leftover{"seven characters", "settings.plist.tmp-Ab3xZ9q"},
        Leftover{"not letters or digits", "settings.plist.tmp-Ab3x.9"},
        Leftover{"another file's temporary", "other.plist.tmp-Ab3xZ9"},
        Leftover{"a backup", "settings.plist.corrupt-20250101-000000"},
        Leftover{"a link named like a temporary", "settings.plist.tmp-Ab3xZ9", Leftover::Kind::Link},
        Leftover{"a folder named like a temporary", "settings.plist.tmp-Ab3xZ9", Leftover::Kind::Folder},
        Leftover{"a file with another name too", "settings.plist.tmp-Ab3xZ9", Leftover::Kind::HardLinked}));

// A value whose type does not fit its registered default reads as the default, is
// reported once, and is reported again after it is set to another wrong value.
TEST(UserDefaults, AValueOfTheWrongTypeReadsAsTheRegisteredDefault) {
    test::TempTree tree;
    const std::string path = tree.file(
        "w.plist", propertyListData(
                       PropertyValue::Dictionary{
                           {"Flag", "NO"}, {"Count", 2.0}, {"Free", "x"}, {"Slider", "small"}, {"List", 3}},
                       PropertyListFormat::XML));
    ScopedLogCapture log;
    UserDefaults defaults(path);
    EXPECT_FALSE(defaults.boolForKey("Flag")) << "nothing registered: the value as it stands";
    defaults.registerDefaults({{"Flag", true}, {"Count", 5}});
    EXPECT_TRUE(defaults.boolForKey("Flag"));
    EXPECT_EQ(defaults.integerForKey("Count"), 2) << "a real is a number";
    EXPECT_EQ(defaults.stringForKey("Free"), "x");
    EXPECT_TRUE(defaults.hasStoredValueForKey("Flag")) << "the user's value stays";
    auto reports = [&] {
        const auto lines = log.lines();
        return std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
            return line.find("\"Flag\"") != std::string::npos && line.find("wrong type") != std::string::npos;
        });
    };
    EXPECT_EQ(reports(), 1);
    EXPECT_TRUE(
        log.contains("Setting \"Flag\" in " + path +
                     " has the wrong type (a string where a boolean belongs); the default YES is used"))
        << testing::PrintToString(log.lines());
    // Defaults as a user would write them: a single-precision real as written, not as its double.
    defaults.registerDefaults(
        {{"Slider", static_cast<double>(0.0499999F)}, {"List", PropertyValue::Array{}}});
    EXPECT_TRUE(
        log.contains("has the wrong type (a string where a number belongs); the default 0.0499999 is used"))
        << testing::PrintToString(log.lines());
    EXPECT_TRUE(log.contains(
        "has the wrong type (a number where an array belongs); the default (an empty list) is used"))
        << testing::PrintToString(log.lines());
    defaults.setObject(0, "Flag");
    EXPECT_TRUE(defaults.boolForKey("Flag"));
    EXPECT_EQ(reports(), 2);
    defaults.setBool(false, "Flag");
    EXPECT_FALSE(defaults.boolForKey("Flag"));
    EXPECT_EQ(reports(), 2);
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
                (void)writer.synchronize(); // stopped mid-write on purpose: the outcome does not matter
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

// A settings file the program may not read is never written: the store works from
// memory and the file keeps its bytes and its mode, whoever asks to save.
TEST(UserDefaults, AnUnreadableFileIsNeverWritten) {
    test::TempTree tree;
    const std::string original = propertyListData(
        PropertyValue::Dictionary{{"MoveIntoTrash", true}, {"AutoselectList", PropertyValue::Array{"/a"}}},
        PropertyListFormat::XML);
    const std::string path = tree.file("settings/unreadable.plist", original);
    test::makeUnreadableToAnotherUser(path);
    const int status = test::runAsAnotherUser([&] {
        ScopedLogCapture log;
        UserDefaults defaults(path);
        if (!defaults.objectForKey("AutoselectList").isNull())
            return 10; // the body could read the file after all: the test proves nothing
        defaults.setBool(false, "MoveIntoTrash");
        if (defaults.boolForKey("MoveIntoTrash"))
            return 11; // changes still apply in memory for this run
        CVError error;
        if (defaults.synchronize(&error))
            return 12;
        return log.contains("could not be read") ? 0 : 13;
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(test::TempTree::read(path), original);
    struct stat st {};
    ASSERT_EQ(::stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0u);
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

// Values the program does not own keep their exact text when a known key is changed
// and the file is rewritten.
TEST(UserDefaults, UnknownValuesSurviveARewriteExactly) {
    test::TempTree tree;
    const std::string values[] = {
        "<date>2100-01-01T00:00:00Z</date>",      "<date>1800-06-15T12:30:00Z</date>",
        "<date>2020-05-17T10:11:12.345Z</date>",  "<integer>18446744073709551615</integer>",
        "<integer>9223372036854775808</integer>", "<real>0.1</real>",
        "<real>1.0000000000000002</real>",
    };
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
                      "\t<key>MoveIntoTrash</key>\n\t<true/>\n";
    for (std::size_t i = 0; i < std::size(values); ++i)
        xml += "\t<key>Foreign" + std::to_string(i) + "</key>\n\t" + values[i] + "\n";
    xml += "</dict>\n</plist>\n";
    const std::string path = tree.file("config/corvel/com.halvik.Corvel.plist", xml);
    const PropertyValue before = readFile(path);
    {
        UserDefaults defaults(path);
        defaults.setBool(false, "MoveIntoTrash");
        ASSERT_TRUE(defaults.synchronize());
    }
    const std::string written = test::TempTree::read(path);
    ASSERT_NE(written, xml);
    for (std::size_t i = 0; i < std::size(values); ++i)
        EXPECT_NE(written.find("<key>Foreign" + std::to_string(i) + "</key>\n\t" + values[i] + "\n"),
                  std::string::npos)
            << values[i] << " in\n"
            << written;
    const PropertyValue after = readFile(path);
    EXPECT_EQ(after["MoveIntoTrash"].asBool(), false);
    for (std::size_t i = 0; i < std::size(values); ++i) {
        const std::string key = "Foreign" + std::to_string(i);
        EXPECT_TRUE(after[key] == before[key]) << key;
        EXPECT_EQ(after[key].isUnsignedInteger(), before[key].isUnsignedInteger()) << key;
    }
    EXPECT_EQ(after["Foreign3"].toUInt64(), UINT64_MAX);
    EXPECT_EQ(after["Foreign2"].asDate()->secondsSince1970, 1589710272.345);
}

} // namespace
} // namespace corvel

#pragma once
// What a removal pass test needs: the scan's services on a private settings store, user
// files in a TempTree with their own home Trash, nodes made as the walk makes them, a
// view and a library driver that record what they were asked, and a way to run a pass
// on its own thread while the main queue is pumped.

#include <algorithm>
#include <chrono>
#include <deque>
#include <dirent.h>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "engine/folder.h"
#include "engine/group.h"
#include "platform/file_access.h"
#include "platform/main_queue.h"
#include "platform/trash.h"
#include "removal/achievements_controller.h"
#include "removal/library_app_driver.h"
#include "removal/removal_pass.h"
#include "removal/removal_view.h"
#include "removal/statistics_controller.h"
#include "results/duplicates_controller.h"
#include "scan/scan_harness.h"
#include "support/temp_tree.h"

namespace corvel::test {

// The total size of what lies at path, folders summed as the walk sums them.
inline void measure(const std::string& path, std::uint64_t& size, std::uint64_t& onDisk) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0)
        return;
    if (!S_ISDIR(st.st_mode)) {
        size += static_cast<std::uint64_t>(st.st_size);
        onDisk += static_cast<std::uint64_t>(st.st_blocks) * 512;
        return;
    }
    DIR* dir = ::opendir(path.c_str());
    if (!dir)
        return;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            measure(path + "/" + name, size, onDisk);
    }
    ::closedir(dir);
}

// A node for the item at path as the walk records it: sizes, inode, device and the
// modification time to the nanosecond; a CVFolder for a folder.
inline std::shared_ptr<CVFile> scannedNode(const std::string& path) {
    struct stat st {};
    EXPECT_EQ(::lstat(path.c_str(), &st), 0) << path;
    std::uint64_t size = 0;
    std::uint64_t onDisk = 0;
    measure(path, size, onDisk);
    const std::string name = path.substr(path.rfind('/') + 1);
    std::shared_ptr<CVFile> node = S_ISDIR(st.st_mode) ? std::make_shared<CVFolder>(path, name, size, onDisk)
                                                       : std::make_shared<CVFile>(path, name, size, onDisk);
    node->setInodeNumber(st.st_ino);
    node->setDevice(st.st_dev);
    node->setStatCTime(st.st_ctim.tv_sec);
    node->setStatMTimeNanoseconds(st.st_mtim.tv_sec * CVFile::kNanosecondsPerSecond + st.st_mtim.tv_nsec);
    if (S_ISDIR(st.st_mode))
        node->setType(kNodeTypePlainFolder);
    return node;
}

// Every call the pass makes on its view, in order, with what came with it.
class RecordingRemovalView : public CVRemovalView {
public:
    struct Handled {
        std::string path;
        bool ok;
        std::string reason;
    };

    std::vector<std::string> calls;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> ticks; // (handled, total)
    std::vector<Handled> handled;
    std::vector<std::uint64_t> cleanedNotifications;
    std::vector<std::string> doneToolTips;
    std::vector<std::string> errorListTexts;
    std::vector<std::int32_t> windowStates;
    // Runs at each tick, after it was recorded (a test presses Stop here).
    std::function<void(std::uint64_t handled, std::uint64_t total)> onTick;
    // Runs when the pass starts its animation, on the main thread while the pass waits.
    std::function<void()> onStart;

    std::size_t count(const std::string& call) const {
        return static_cast<std::size_t>(std::count(calls.begin(), calls.end(), call));
    }

    void setRemoveButton(const std::string& title, const std::string& /*unused*/) override {
        calls.push_back("setRemoveButton " + title);
    }
    void setCloseButtonEnabled(bool enabled) override {
        calls.push_back(enabled ? "closeButton on" : "closeButton off");
    }
    void setButtonsEnabled(bool enabled) override { calls.push_back(enabled ? "buttons on" : "buttons off"); }
    void setWindowState(std::int32_t state) override {
        windowStates.push_back(state);
        calls.push_back("windowState " + std::to_string(state));
    }
    void startShredderAnimation() override {
        calls.push_back("startShredderAnimation");
        if (onStart)
            onStart();
    }
    void advanceShredderAnimation(std::uint64_t done, std::uint64_t total) override {
        ticks.emplace_back(done, total);
        calls.push_back("advanceShredderAnimation");
        if (onTick)
            onTick(done, total);
    }
    void closeShredderAnimation() override { calls.push_back("closeShredderAnimation"); }
    void endShredderAnimations() override { calls.push_back("endShredderAnimations"); }
    void showLibraryPopup(LibraryKind kind) override {
        calls.push_back(kind == LibraryKind::Photos ? "showLibraryPopup photos" : "showLibraryPopup music");
    }
    void hideLibraryPopup(LibraryKind kind) override {
        calls.push_back(kind == LibraryKind::Photos ? "hideLibraryPopup photos" : "hideLibraryPopup music");
    }
    void fileHandled(const CVFile& file, bool ok, const std::string& reason) override {
        handled.push_back({file.path(), ok, reason});
        calls.push_back("fileHandled");
    }
    void setDoneButtonToolTip(const std::string& toolTip) override {
        doneToolTips.push_back(toolTip);
        calls.push_back("setDoneButtonToolTip");
    }
    void showSuccessView() override { calls.push_back("showSuccessView"); }
    void showErrorList(const std::string& text) override {
        errorListTexts.push_back(text);
        calls.push_back("showErrorList");
    }
    void reloadCollector() override { calls.push_back("reloadCollector"); }
    void postCleanedNotification(std::uint64_t bytes) override {
        cleanedNotifications.push_back(bytes);
        calls.push_back("postCleanedNotification");
    }
};

// A library application driver that answers as told and keeps every request. Called on
// the pass's thread; read after the pass ended.
class ScriptedLibraryDriver : public LibraryAppDriver {
public:
    std::deque<bool> launchAnswers; // then launchByDefault
    bool launchByDefault = true;
    std::deque<std::optional<PropertyValue::Dictionary>> scriptAnswers; // then success
    std::vector<std::string> launched;
    std::vector<std::string> scripts;

    bool launchApplication(const std::string& bundleIdentifier) override {
        launched.push_back(bundleIdentifier);
        if (launchAnswers.empty())
            return launchByDefault;
        const bool answer = launchAnswers.front();
        launchAnswers.pop_front();
        return answer;
    }
    std::optional<PropertyValue::Dictionary> runScript(const std::string& script) override {
        scripts.push_back(script);
        if (scriptAnswers.empty())
            return std::nullopt;
        auto answer = scriptAnswers.front();
        scriptAnswers.pop_front();
        return answer;
    }
};

// Clears the immutable flag of the paths given when it dies, so a failing test leaves
// nothing locked behind.
class ImmutableFlags {
public:
    ImmutableFlags() = default;
    ImmutableFlags(const ImmutableFlags&) = delete;
    ImmutableFlags& operator=(const ImmutableFlags&) = delete;
    ~ImmutableFlags() {
        for (auto it = m_paths.rbegin(); it != m_paths.rend(); ++it)
            (void)setImmutable(*it, false, nullptr); // what stays locked, TempTree unlocks
    }
    bool lock(const std::string& path) {
        m_paths.push_back(path);
        return setImmutable(path, true, nullptr);
    }

private:
    std::vector<std::string> m_paths;
};

// Why the immutable flag cannot be used here (empty when it can): it needs root and a
// file system that keeps it.
inline std::string immutableFlagUnavailable(const TempTree& tree) {
    const std::string probe = tree.file("immutable-probe", "x");
    CVError error;
    if (!setImmutable(probe, true, &error))
        return "needs root and a file system with the immutable flag (" + error.localizedDescription() + ")";
    (void)setImmutable(probe, false, nullptr); // TempTree unlocks it otherwise
    ::unlink(probe.c_str());
    return {};
}

// The services of a pass over files in files/, with the home Trash in data/Trash and the
// settings in another tree.
struct RemovalHarness {
    ScanHarness scan; // settings store, preferences, ignore list (home: scan.settings/home)
    TempTree tree;
    ScriptedLibraryDriver driver;
    RecordingRemovalView view;
    Trash trash{TrashEnvironment{tree / "data", std::nullopt}};
    CVStatisticsController statistics{scan.defaults};
    HVAchievementsController achievements{scan.defaults};
    std::shared_ptr<CVDuplicatesController> results = std::make_shared<CVDuplicatesController>();
    std::vector<std::shared_ptr<CVFolder>> libraryRoots;        // held: files link to them weakly
    std::vector<std::unique_ptr<CVDuplicatesLocator>> locators; // scans whose walked trees are kept

    RemovalHarness() {
        tree.folder("files");
        statistics.addScanWithFoldersCount(1);
        statistics.scanFinishedWithSize(0, 0);
    }

    std::string files(const std::string& relative = {}) const {
        return relative.empty() ? tree / "files" : tree / ("files/" + relative);
    }
    std::string homeTrash() const { return resolvePathAllowingMissing(tree / "data/Trash"); }
    std::string home() const { return scan.settings / "home"; }

    // A group of the items at the paths as the walk records them, added to the results;
    // the members at the marked places are marked for removal.
    std::shared_ptr<CVGroup> group(const std::vector<std::string>& paths,
                                   const std::vector<std::size_t>& marked) {
        std::vector<std::shared_ptr<CVFile>> nodes;
        for (const auto& path : paths)
            nodes.push_back(scannedNode(path));
        return group(nodes, marked);
    }
    std::shared_ptr<CVGroup> group(const std::vector<std::shared_ptr<CVFile>>& nodes,
                                   const std::vector<std::size_t>& marked) {
        auto g = CVGroup::initWithCVFile(nodes.front());
        for (std::size_t i = 1; i < nodes.size(); ++i)
            g->addFile(nodes[i]);
        for (const std::size_t m : marked) {
            nodes[m]->setNeedToRemove(true);
            nodes[m]->setSelectionType(kSelectionManual);
        }
        results->addGroup(g);
        return g;
    }
    // A group of a kept file and its copies, each of the contents, under files/.
    std::shared_ptr<CVGroup> copies(const std::string& kept, const std::vector<std::string>& copyPaths,
                                    const std::string& contents) {
        std::vector<std::string> paths{tree.file("files/" + kept, contents)};
        std::vector<std::size_t> marked;
        for (const auto& copy : copyPaths) {
            marked.push_back(paths.size());
            paths.push_back(tree.file("files/" + copy, contents));
        }
        return group(paths, marked);
    }
    // Makes the file a member of a library folder of the type (14: the current photo
    // library, 11: the current music library).
    void putInLibrary(CVFile& file, NodeType libraryType) {
        auto root = std::make_shared<CVFolder>(tree / "files", "files");
        root->setType(libraryType);
        file.setRootFolder(root);
        libraryRoots.push_back(root);
    }

    CVRemovalPass::Services services(LibraryAppDriver& libraryDriver) {
        return {*results,        scan.defaults, scan.preferences,
                scan.ignoreList, trash,         libraryDriver,
                statistics,      achievements,  view};
    }
    CVRemovalPass::Options options(bool toTrash, bool removeEmptyFolders = false) const {
        CVRemovalPass::Options o;
        o.moveToTrash = toTrash;
        o.removeEmptyFolders = removeEmptyFolders;
        o.tickPacing = false;
        o.scanRoots = {files()};
        return o;
    }
    std::unique_ptr<CVRemovalPass> pass(const CVRemovalPass::Options& o) {
        return std::make_unique<CVRemovalPass>(services(driver), o);
    }
    std::unique_ptr<CVRemovalPass> pass(bool toTrash, bool removeEmptyFolders = false) {
        return pass(options(toTrash, removeEmptyFolders));
    }
    // A dry run, made and run to its end.
    std::unique_ptr<CVRemovalPass> dryRun(bool toTrash, bool removeEmptyFolders = false);

    // The statistics record of the scan.
    PropertyValue lastRecord() const {
        const auto records = scan.defaults.arrayForKey(kUserStatisticsArrayKey);
        return records && !records->empty() ? records->back() : PropertyValue();
    }
};

// Presses Remove and runs the main queue until the pass's thread has ended.
inline void runPass(CVRemovalPass& pass) {
    pass.shreddList();
    ASSERT_TRUE(
        MainQueue::shared().runUntil([&] { return !pass.isPassThreadRunning(); }, std::chrono::seconds(60)));
    pass.waitForPass();
    MainQueue::shared().drain();
}

inline std::unique_ptr<CVRemovalPass> RemovalHarness::dryRun(bool toTrash, bool removeEmptyFolders) {
    auto o = options(toTrash, removeEmptyFolders);
    o.dryRun = true;
    auto dry = pass(o);
    runPass(*dry);
    return dry;
}

inline bool exists(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0;
}

inline const CVRemovalPass::FileRecord* recordOf(const CVRemovalPass& pass, const std::string& path) {
    for (const auto& record : pass.records())
        if (record.file && record.file->path() == path)
            return &record;
    return nullptr;
}

} // namespace corvel::test

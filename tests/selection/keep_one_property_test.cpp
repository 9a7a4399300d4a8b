// Keep-one, as a property: random groups (sizes, folders, media libraries, Always and
// Never Select lists, modification times, forbidden copies) and random sequences of
// every operation of the selecting controller. After every step each group keeps at
// least one unmarked copy, unless the user forced the last one, and its count of files
// to remove matches its marked copies. A failure prints the seed; set
// CORVEL_SELECTION_SEED to replay it.

#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <sstream>

#include "engine/folder.h"
#include "engine/node_type.h"
#include "media/media_library.h"
#include "platform/main_queue.h"
#include "platform/user_defaults.h"
#include "selection/selecting_controller.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

using GroupPtr = std::shared_ptr<CVGroup>;

struct NullDisplay : CVSelectingControllerDisplay {
    void shouldIncSelectedSize(std::int64_t /*size*/, std::int64_t /*count*/) override {}
    void shouldIncSelectedSize(std::int64_t /*size*/, std::int64_t /*count*/, const std::string& /*warning*/,
                               const std::string& /*details*/) override {}
};

// Folders the copies lie in; the library folders are the roots of their libraries.
const std::vector<std::string> kFolders = {
    "/home/u/Downloads",         "/home/u/Work",      "/home/u/Work/old",
    "/home/u/Dropbox/Shared",    "/home/u/OneDrive",  "/data/Photos",
    "/data/untitled folder",     "/data/Trip (copy)", "/lib/Music/iTunes",
    "/lib/Photos.library",       "/lib/Ap.aplibrary", "/Applications",
    "/home/u/Applications/Tool", "/home/u",
};
// Folders the lists and the select-like-this operations name.
const std::vector<std::string> kListFolders = {
    "/home/u", "/home/u/Downloads", "/home/u/Work",     "/data",        "/data/Photos",
    "/lib",    "/lib/Ap.aplibrary", "/home/u/Work/old", "/Applications"};
const std::vector<std::string> kNameMarks = {
    "",     " copy",     " copy 2",  " (copy)", " (another copy)", " (3rd copy)",
    " (2)", " (copy 2)", "Copy of ", " 1"};
const std::vector<std::int64_t> kTimes = {
    std::numeric_limits<std::int64_t>::min(), -2208988800, -100, -1, 0, 1, 1700000000, (1LL << 53) + 1,
    std::numeric_limits<std::int64_t>::max()};
const std::vector<std::string> kEvents = {"Trip", "Sea", "Home"};
const std::vector<std::string> kNames = {"Anna", "Ben"};

class World {
public:
    World(std::uint64_t seed, UserDefaults& defaults) : m_rng(seed), m_defaults(defaults) {
        for (const auto& [path, type] : std::vector<std::pair<std::string, NodeType>>{
                 {"/lib/Music/iTunes", kNodeTypeCurrentITunesLibrary},
                 {"/lib/Photos.library", kNodeTypeCurrentIPhotoLibrary},
                 {"/lib/Ap.aplibrary", kNodeTypeApertureLibrary},
                 {"/", kNodeTypePlainFolder}}) {
            auto root = std::make_shared<CVFolder>(path, "");
            root->setType(type);
            m_roots.push_back(root);
        }
        makeLists();
        const int groups = pick(1, 4);
        for (int g = 0; g < groups; ++g)
            makeGroup(g);
    }

    const std::vector<GroupPtr>& groups() const { return m_groups; }

    int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(m_rng); }
    bool chance(double p) { return std::bernoulli_distribution(p)(m_rng); }
    template <typename T> const T& any(const std::vector<T>& values) {
        return values[static_cast<std::size_t>(pick(0, static_cast<int>(values.size()) - 1))];
    }

    std::vector<GroupPtr> someGroups() {
        std::vector<GroupPtr> out;
        for (const auto& g : m_groups)
            if (chance(0.6))
                out.push_back(g);
        return out;
    }

    CVPathComponent component() {
        const int kind = pick(0, 3);
        if (kind == kComponentFolder)
            return CVPathComponent::initWithSourse(any(kListFolders), "", kComponentFolder);
        const std::string source = kind == kComponentEvent ? any(kEvents) : any(kNames);
        return CVPathComponent::initWithSourse(source, source, kind);
    }

    std::string describe() const {
        std::ostringstream out;
        for (const auto& entry : CVAutoselectLists(m_defaults).list())
            out << "list " << (entry.category == kNeverSelect ? "never " : "always ") << entry.path
                << (entry.enabled ? "" : " (disabled)") << "\n";
        for (std::size_t g = 0; g < m_groups.size(); ++g) {
            out << "group " << g << " type " << m_groups[g]->type() << "\n";
            for (const auto& f : m_groups[g]->files())
                out << "  " << f->path() << " type " << f->type() << " mtime " << f->statMTime()
                    << (f->removeForbidden() ? " forbidden" : "") << " info " << f->info().description()
                    << (f->needToRemove() ? " MARKED" : "") << " sel " << f->selectionType() << "\n";
        }
        return out.str();
    }

private:
    void makeLists() {
        std::vector<CVAutoselectListItem> entries;
        const int count = pick(0, 4);
        for (int i = 0; i < count; ++i) {
            CVAutoselectListItem entry;
            entry.path = any(kListFolders);
            entry.category = chance(0.5) ? kAlwaysSelect : kNeverSelect;
            entry.enabled = chance(0.85);
            entries.push_back(entry);
        }
        CVAutoselectLists(m_defaults).setAutoselectList(entries);
    }

    std::shared_ptr<CVFolder> rootFor(const std::string& folder) {
        for (const auto& root : m_roots)
            if (root->path() != "/" && folder.starts_with(root->path()))
                return root;
        return m_roots.back();
    }

    PropertyValue record(std::int32_t rootType) {
        if (rootType == kNodeTypePlainFolder || chance(0.3))
            return PropertyValue(PropertyValue::Dictionary{});
        PropertyValue::Dictionary r{{"Name", "x"}};
        if (chance(0.6))
            r[kRatingKey] = pick(0, 2) * 20;
        if (chance(0.7))
            r[kAlbumNameKey] = any(kNames);
        if (chance(0.7))
            r[kArtistNameKey] = any(kNames);
        if (chance(0.5))
            r[kPlayCountKey] = pick(0, 3);
        if (chance(0.4))
            r[kPlayDateKey] = PropertyDate{static_cast<double>(pick(-2, 2)) * 1e8};
        if (chance(0.4))
            r[kNumberOfTagsKey] = pick(0, 2);
        if (chance(0.8))
            r[kEventNameKey] = any(kEvents);
        r[kEventIDKey] = any(kEvents);
        return PropertyValue(std::move(r));
    }

    void makeGroup(int index) {
        static const std::vector<std::pair<NodeType, std::string>> kinds = {
            {kNodeTypeImage, ".jpg"},    {kNodeTypeAudio, ".mp3"}, {kNodeTypeVideo, ".mov"},
            {kNodeTypeDocument, ".txt"}, {kNodeTypeOther, ""},     {kNodeTypeArchive, ".tar.gz"}};
        const auto& [type, extension] = any(kinds);
        const std::string stem = "f" + std::to_string(index);
        GroupPtr group;
        std::vector<std::string> used;
        const int size = pick(2, 6);
        for (int i = 0; i < size; ++i) {
            std::string folder = any(kFolders);
            const std::string mark = any(kNameMarks);
            std::string name = mark == "Copy of " ? mark + stem + extension : stem + mark + extension;
            std::string path = folder + "/" + name;
            while (std::find(used.begin(), used.end(), path) != used.end()) {
                folder += "/d";
                path = folder + "/" + name;
            }
            used.push_back(path);
            auto file = std::make_shared<CVFile>(path, name, 1000, 4096);
            file->setType(chance(0.12) ? kNodeTypeOther : type);
            file->setStatMTime(any(kTimes));
            file->setRemoveForbidden(chance(0.1));
            const auto root = rootFor(folder);
            file->setRootFolder(root);
            file->setInfo(record(root->type()));
            if (!group)
                group = CVGroup::initWithCVFile(file);
            else
                group->addFile(file);
        }
        m_groups.push_back(group);
    }

    std::mt19937_64 m_rng;
    UserDefaults& m_defaults;
    std::vector<std::shared_ptr<CVFolder>> m_roots;
    std::vector<GroupPtr> m_groups;
};

std::size_t unmarked(const CVGroup& group) {
    std::size_t count = 0;
    for (const auto& f : group.existentChildren())
        count += f->needToRemove() ? 0 : 1;
    return count;
}

std::int64_t marked(const CVGroup& group) {
    return static_cast<std::int64_t>(group.existentChildren().size() - unmarked(group));
}

// Runs one random operation; answers its name and the group a forced selection filled, if any.
std::string step(World& world, CVSelectingController& controller, const CVGroup** forced) {
    const auto& groups = world.groups();
    const GroupPtr& group = world.any(groups);
    const auto files = group->files();
    const SelectionItem& file = world.any(files);
    switch (world.pick(0, 15)) {
    case 0:
        controller.autoselectGroups(world.someGroups());
        return "autoselectGroups";
    case 1:
        controller.forceAutoselectGroups(world.someGroups());
        return "forceAutoselectGroups";
    case 2:
        controller.deselectGroups(world.someGroups());
        return "deselectGroups";
    case 3:
        controller.deselectGroup(group);
        return "deselectGroup";
    case 4: {
        const CVPathComponent c = world.component();
        controller.selectGroupsInArray(world.someGroups(), c);
        return "selectGroupsInArray " + std::to_string(c.kind) + " " + c.source;
    }
    case 5: {
        const CVPathComponent c = world.component();
        controller.deselectGroupsInArray(world.someGroups(), c);
        return "deselectGroupsInArray " + std::to_string(c.kind) + " " + c.source;
    }
    case 6:
        controller.keepOldestItemsInGroupsArray(world.someGroups());
        return "keepOldestItemsInGroupsArray";
    case 7:
        controller.keepMostRecentItemsInGroupsArray(world.someGroups());
        return "keepMostRecentItemsInGroupsArray";
    case 8:
        controller.keepOldestItemsInGroup(group);
        return "keepOldestItemsInGroup";
    case 9:
        controller.keepMostRecentItemsInGroup(group);
        return "keepMostRecentItemsInGroup";
    case 10:
        controller.selectAllButItem(file, group);
        return "selectAllButItem " + file->path();
    case 11:
        controller.selectAllButItemInGroupsArray(world.someGroups());
        return "selectAllButItemInGroupsArray";
    case 12:
    case 13: {
        // The view offers selection for unmarked copies and deselection for marked ones.
        const bool force = world.pick(12, 13) == 13;
        if (file->needToRemove()) {
            controller.deselectItem(file);
            return "deselectItem " + file->path();
        }
        controller.selectItem(file, group, force);
        if (force)
            *forced = group.get();
        return std::string(force ? "forced " : "") + "selectItem " + file->path();
    }
    case 14:
        controller.performAutoselectSelector([](CVAutoselector& s) { return s.autoselect(); }, group, true);
        return "autoselect one group";
    default:
        controller.performAutoselectSelector([](CVAutoselector& s) { return s.forceAutoselect(); }, group,
                                             false);
        return "forceAutoselect one group";
    }
}

TEST(KeepOneProperty, EveryGroupKeepsACopyThroughAnySequenceOfOperations) {
    using Clock = std::chrono::steady_clock;
    std::uint64_t firstSeed = 20240611;
    int cases = 2000;
    if (const char* replay = std::getenv("CORVEL_SELECTION_SEED")) {
        firstSeed = std::strtoull(replay, nullptr, 10);
        cases = 1;
    }
    test::TempTree tree;
    UserDefaults defaults(tree / "settings.plist");
    defaults.setBool(true, kAutoSelectDefaultSetKey);
    NullDisplay display;
    const auto deadline = Clock::now() + std::chrono::seconds(3);
    int ran = 0;
    for (std::uint64_t seed = firstSeed; ran < cases && Clock::now() < deadline; ++seed, ++ran) {
        World world(seed, defaults);
        CVSelectingController controller(nullptr, defaults);
        controller.setDisplay(&display);
        std::vector<bool> full(world.groups().size(), false);
        std::string history;
        for (int s = 0; s < 25; ++s) {
            const CVGroup* forced = nullptr;
            const std::string before = world.describe();
            history += step(world, controller, &forced) + "\n";
            for (std::size_t g = 0; g < world.groups().size(); ++g) {
                const CVGroup& group = *world.groups()[g];
                const bool nowFull = unmarked(group) == 0;
                ASSERT_FALSE(nowFull && !full[g] && forced != &group)
                    << "every copy of group " << g << " is marked; seed " << seed
                    << " (CORVEL_SELECTION_SEED=" << seed << ")\nsteps:\n"
                    << history << "before the last step:\n"
                    << before << "after it:\n"
                    << world.describe();
                ASSERT_EQ(group.silentFilesToRemoveCount(), marked(group))
                    << "group " << g << "; seed " << seed << "\nsteps:\n"
                    << history << world.describe();
                full[g] = nowFull;
            }
        }
        MainQueue::shared().drain();
    }
    EXPECT_GT(ran, 50) << "too few cases in the time allowed";
    std::cout << "[ keep-one ] " << ran << " random cases from seed " << firstSeed << "\n";
}

} // namespace
} // namespace corvel

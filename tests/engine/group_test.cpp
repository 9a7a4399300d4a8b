#include <gtest/gtest.h>
#include <ostream>

#include "engine/folder.h"
#include "engine/group.h"
#include "engine/node_type.h"
#include "platform/file_url.h"
#include "platform/main_queue.h"

namespace corvel {
namespace {

std::shared_ptr<CVFile> member(const std::string& path, std::uint64_t inode = 0, std::uint64_t size = 100) {
    auto f = std::make_shared<CVFile>(path, "", size, 4096);
    f->setInodeNumber(inode);
    return f;
}

std::shared_ptr<CVGroup> groupOf(const std::vector<std::shared_ptr<CVFile>>& files) {
    auto group = CVGroup::initWithCVFile(files.front());
    for (std::size_t i = 1; i < files.size(); ++i)
        group->addFile(files[i]);
    return group;
}

TEST(Group, MembersAreFoldedIn) {
    auto a = member("/p/Beach.jpg", 1);
    auto b = member("/q/copy.png", 2);
    auto c = member("/r/other.jpg", 3);
    auto group = groupOf({a, b});
    EXPECT_TRUE(group->mixedGroup());
    group->addFile(c);
    EXPECT_FALSE(group->mixedGroup()) << "the flag follows the last member added";
    EXPECT_EQ(group->name(), "Beach");
    EXPECT_EQ(group->type(), kNodeTypeImage);
    EXPECT_EQ(group->utiType(), "public.jpeg");
    EXPECT_EQ(group->groupPath(), "/p/Beach.jpg");
    EXPECT_EQ(group->size(), 100u);
    EXPECT_EQ(group->totalSize(), 3u * 4096);
    EXPECT_EQ(group->childrenCount(), 3u);
    EXPECT_TRUE(a->ignore());
    EXPECT_EQ(b->parentGroup(), group.get());
    EXPECT_EQ(group->metaGroupType(), 3);
    group->removeFile(b.get());
    EXPECT_EQ(b->parentGroup(), nullptr);
    EXPECT_EQ(group->totalSize(), 2u * 4096);
    EXPECT_EQ(group->childrenCount(), 2u);
    group.reset();
    EXPECT_EQ(a->parentGroup(), nullptr) << "a dying group lets go of its members";
}

// What a group shows of its members (name, path, type identifiers) before and after a
// member leaves it: the first member's, or the first member that could give them.
struct LeadCase {
    const char* name;
    std::vector<std::string> paths; // "folder:" first: a folder of unknown type
    int leaving;                    // the member that leaves, -1 none
    bool silently;
    std::string groupName, groupPath, uti;
};

void PrintTo(const LeadCase& c, std::ostream* os) {
    *os << c.name;
}

class GroupLead : public testing::TestWithParam<LeadCase> {};

TEST_P(GroupLead, StaysWhenMembersLeave) {
    const LeadCase& c = GetParam();
    std::vector<std::shared_ptr<CVFile>> members;
    for (const std::string& path : c.paths) {
        if (path.starts_with("folder:"))
            members.push_back(std::make_shared<CVFolder>(path.substr(7), ""));
        else
            members.push_back(member(path));
    }
    auto group = groupOf(members);
    for (int step = 0; step < 2; ++step) {
        SCOPED_TRACE(step == 0 ? "all members in" : "after one left");
        EXPECT_EQ(group->name(), c.groupName);
        EXPECT_EQ(group->path(), c.groupPath);
        EXPECT_EQ(group->utiType(), c.uti);
        EXPECT_EQ(group->uti(), c.uti.empty() ? "public.data" : c.uti);
        if (c.leaving < 0)
            break;
        CVFile* leaving = members[static_cast<std::size_t>(c.leaving)].get();
        if (c.silently)
            group->removeFileSilently(leaving);
        else
            group->removeFile(leaving);
        ASSERT_EQ(group->childrenCount(), c.paths.size() - 1);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, GroupLead,
    testing::Values(
        LeadCase{"NobodyLeaves",
                 {"/p/Beach.jpg", "/q/copy.png"},
                 -1,
                 false,
                 "Beach",
                 "/p/Beach.jpg",
                 "public.jpeg"},
        LeadCase{
            "FirstLeaves", {"/p/Beach.jpg", "/q/copy.png"}, 0, false, "Beach", "/p/Beach.jpg", "public.jpeg"},
        LeadCase{"FirstLeavesSilently",
                 {"/p/Beach.jpg", "/q/copy.png", "/r/x.gif"},
                 0,
                 true,
                 "Beach",
                 "/p/Beach.jpg",
                 "public.jpeg"},
        LeadCase{
            "LaterLeaves", {"/p/Beach.jpg", "/q/copy.png"}, 1, false, "Beach", "/p/Beach.jpg", "public.jpeg"},
        // A first member without a title: the next member names the group.
        LeadCase{"FirstHasNoTitle", {"", "/q/Song.mp3"}, 0, false, "Song", "", "public.data"},
        // A first member of unknown type: the next member gives the path and identifier.
        LeadCase{"FirstHasNoType",
                 {"folder:/p/Thing.bundle", "/q/Movie.mkv"},
                 0,
                 true,
                 "Thing",
                 "/q/Movie.mkv",
                 "public.mkv"}),
    [](const testing::TestParamInfo<LeadCase>& lead) { return std::string(lead.param.name); });

TEST(Group, MarkedCountNeverGoesBelowZero) {
    auto a = member("/a/x.jpg");
    auto b = member("/b/x.jpg");
    auto group = groupOf({a, b});
    a->setNeedToRemove(true);
    group->incFilesToRemoveCount();
    group->setAutocollected(true);
    group->removeFile(a.get());
    EXPECT_EQ(group->filesToRemoveCount(), 0);
    EXPECT_FALSE(group->autocollected());
    group->decFilesToRemoveCount();
    EXPECT_EQ(group->filesToRemoveCount(), 0);
    EXPECT_TRUE(group->single());
}

TEST(Group, SilentCountsAreAnnouncedOnceByManifest) {
    auto group = groupOf({member("/a/x"), member("/b/x")});
    int notices = 0;
    group->changeNotifier().addObserver("filesToRemoveCount", [&](std::string_view, ChangePhase phase) {
        if (phase == ChangePhase::Did)
            ++notices;
    });
    group->setSilentFilesToRemoveCount(2);
    EXPECT_EQ(group->filesToRemoveCount(), 0);
    group->manifest();
    MainQueue::shared().drain();
    EXPECT_EQ(group->filesToRemoveCount(), 2);
    EXPECT_EQ(notices, 1);
}

TEST(Group, UnremovableMembersMakeTheGroupForbiddenUnlessALibraryHoldsThem) {
    auto locked = member("/a/x.jpg");
    locked->setRemoveForbidden(true);
    auto free = member("/b/x.jpg");
    EXPECT_FALSE(groupOf({locked, free})->allFilesForbidden());
    auto locked2 = member("/c/x.jpg");
    locked2->setRemoveForbidden(true);
    EXPECT_TRUE(groupOf({locked, locked2})->allFilesForbidden());

    for (const auto& [rootType, forbidden] :
         {std::pair{kNodeTypeITunesLibrary, false}, std::pair{kNodeTypeIPhotoLibrary, false},
          std::pair{kNodeTypeNewerIPhotoLibrary, false}, std::pair{kNodeTypeCurrentIPhotoLibrary, true},
          std::pair{kNodeTypeApertureLibrary, true}}) {
        auto root = std::make_shared<CVFolder>("/lib", "");
        root->setType(rootType);
        auto inLibrary = member("/lib/x.jpg");
        inLibrary->setRemoveForbidden(true);
        inLibrary->setRootFolder(root);
        EXPECT_EQ(groupOf({locked, inLibrary})->allFilesForbidden(), forbidden) << rootType;
    }
}

TEST(Group, HardLinksAreRecognisedByInodeNumber) {
    struct Case {
        std::vector<std::uint64_t> inodes;
        bool allLinks;
    };
    for (const Case& c : {Case{{7, 7, 7}, true}, Case{{7, 7, 8}, false}, Case{{0, 0, 7, 7}, true},
                          Case{{7, 0}, false}, Case{{0, 0}, true}}) {
        std::vector<std::shared_ptr<CVFile>> files;
        for (std::size_t i = 0; i < c.inodes.size(); ++i)
            files.push_back(member("/m" + std::to_string(i) + "/f", c.inodes[i]));
        EXPECT_EQ(groupOf(files)->hardLinkCheck(), c.allLinks) << testing::PrintToString(c.inodes);
    }
}

TEST(Group, CategoryKindsFollowTheNodeType) {
    const std::int32_t expected[] = {1, 1, 2, 3, 4, 5, 6, 7, 1, 1, 4, 4, 1, 3, 3, 3, 3, 3, 2, 5};
    for (std::int32_t type = 0; type < 20; ++type)
        EXPECT_EQ(CVGroup::metaGroupTypeForNodeType(static_cast<NodeType>(type)), expected[type]) << type;
    EXPECT_EQ(CVGroup::metaGroupTypeForNodeType(static_cast<NodeType>(25)), 1);
    EXPECT_EQ(CVGroup::metaGroupTypeForNodeType(static_cast<NodeType>(-1)), 1);
}

TEST(Group, BaseAndCommonPaths) {
    struct Case {
        std::vector<std::string> paths;
        std::string base;
        std::string common;
    };
    for (const Case& c :
         {Case{{"/a/b/x.jpg", "/a/b/y.jpg"}, "/a/", "/a/b"}, Case{{"/a/b/x.jpg", "/a/c/y.jpg"}, "/", "/a"},
          Case{{"/home/ada/Pics/2020/a.jpg", "/home/ada/Pics/2021/a.jpg", "/home/ada/Pics/2020/b.jpg"},
               "/home/ada/Pics/",
               "/home/ada/Pics/2020"}, // the last differing member decides
          Case{{"/x/My Files/a.jpg", "/x/My Files/b.jpg"}, "/x/", "/x/My Files"}}) {
        std::vector<std::shared_ptr<CVFile>> files;
        for (const auto& p : c.paths)
            files.push_back(member(p));
        auto group = groupOf(files);
        EXPECT_EQ(filePathFromURLString(group->basePathForFiles()), c.base) << c.paths[0];
        EXPECT_EQ(group->commonPath(), c.common);
        EXPECT_EQ(filePathFromURLString(group->basePathForFiles() + files[1]->relativePathURL()), c.paths[1])
            << "the relative URL leads back to the member";
    }
    EXPECT_EQ(CVGroup().commonPath(), "");
}

} // namespace
} // namespace corvel

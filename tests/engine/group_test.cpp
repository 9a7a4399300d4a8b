#include <gtest/gtest.h>

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
        EXPECT_EQ(CVGroup::metaGroupTypeForNodeType(type), expected[type]) << type;
    EXPECT_EQ(CVGroup::metaGroupTypeForNodeType(25), 1);
    EXPECT_EQ(CVGroup::metaGroupTypeForNodeType(-1), 1);
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

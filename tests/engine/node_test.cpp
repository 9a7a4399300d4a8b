#include <ctime>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <sys/stat.h>

#include "engine/folder.h"
#include "engine/group.h"
#include "engine/node.h"
#include "engine/node_type.h"
#include "media/media_manager.h"
#include "platform/file_io.h"
#include "platform/file_url.h"
#include "platform/main_queue.h"
#include "platform/property_list.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

std::shared_ptr<CVFolder> folder(const std::string& path, NodeType type = kNodeTypePlainFolder) {
    auto f = std::make_shared<CVFolder>(path, "");
    f->setType(type);
    return f;
}

std::shared_ptr<CVFile> file(const std::string& path, std::uint64_t size = 10) {
    return std::make_shared<CVFile>(path, "", size, size + 1);
}

TEST(Node, FlagsFlowDownTheWholeSubtree) {
    auto library = folder("/m/iTunes", kNodeTypeITunesLibrary);
    auto media = folder("/m/iTunes/Media");
    auto song = file("/m/iTunes/Media/a.mp3");
    auto other = file("/m/iTunes/b.mp3");
    library->addChildFile(media);
    media->addChildFile(song);
    library->addChildFile(other);
    library->addChildFile(media); // a folder stands twice: entered and left

    library->setIgnore(true);
    EXPECT_TRUE(media->ignore());
    EXPECT_TRUE(song->ignore());
    EXPECT_TRUE(other->ignore());
    library->setRemoveForbidden(true);
    EXPECT_TRUE(song->removeForbidden());
    library->setRemoveForbidden(false);
    EXPECT_FALSE(song->removeForbidden());
    EXPECT_FALSE(media->removeForbidden());
}

// /top holding a hidden folder, a folder whose children may not be removed and an
// application bundle with a plain folder and a file inside.
struct SmallTree {
    std::shared_ptr<CVFolder> top = folder("/top");
    std::shared_ptr<CVFolder> hidden = folder("/top/.hidden");
    std::shared_ptr<CVFolder> locked = folder("/top/locked");
    std::shared_ptr<CVFolder> bundle = folder("/top/X.app", kNodeTypeApplication);
    std::shared_ptr<CVFolder> inner = folder("/top/X.app/Contents", kNodeTypePlainFolder);
    std::shared_ptr<CVFile> deep = file("/top/X.app/Contents/bin", 100);
    std::shared_ptr<CVFile> h = file("/top/.hidden/a", 5);
    std::shared_ptr<CVFile> l = file("/top/locked/b", 7);

    SmallTree() {
        hidden->setChildrenInvisible(true);
        locked->setChildrenUndeletable(true);
        top->addChildFile(hidden);
        top->addChildFile(locked);
        top->addChildFile(bundle);
        bundle->addChildFile(inner);
        inner->addChildFile(deep);
        h->setIgnore(true); // the walk decides an entry's own ignore before attaching it
        hidden->addChildFile(h);
        locked->addChildFile(l);
    }
};

TEST(Node, HiddenAndLockedFoldersPassIgnoreAndRemovalLockToTheirChildren) {
    SmallTree t;
    EXPECT_TRUE(t.h->ignore());
    EXPECT_FALSE(t.h->removeForbidden());
    EXPECT_TRUE(t.l->removeForbidden());
    EXPECT_FALSE(t.l->ignore());
    EXPECT_TRUE(t.hidden->allChildrenIgnored());
    EXPECT_FALSE(t.locked->allChildrenIgnored());
    auto later = file("/top/.hidden/c", 1);
    t.hidden->addChildFile(later);
    EXPECT_TRUE(later->ignore()) << "invisible children are ignored";
    EXPECT_FALSE(t.hidden->allChildrenIgnored()) << "judged by the child's own flag when it came";
}

TEST(Node, ABundleIsTheRootFolderOfWhatItHoldsUntilItDies) {
    auto t = std::make_optional<SmallTree>();
    EXPECT_EQ(t->inner->rootFolder(), t->bundle) << "a bundle is the root of what it holds";
    EXPECT_EQ(t->deep->rootFolder(), t->bundle) << "plain folders pass the root down";
    EXPECT_EQ(t->h->rootFolder(), nullptr);
    EXPECT_EQ(t->deep->parentFolder(), t->inner.get());
    // A file that outlives its folders loses its links to them instead of dangling.
    auto deep = t->deep;
    t.reset();
    EXPECT_EQ(deep->rootFolder(), nullptr);
    EXPECT_EQ(deep->parentFolder(), nullptr);
}

TEST(Node, FoldersAddUpTheSizesAndCountOfTheirChildren) {
    SmallTree t;
    EXPECT_EQ(t.inner->size(), 100u);
    EXPECT_EQ(t.hidden->size(), 5u);
    EXPECT_EQ(t.hidden->sizeOnDisk(), 6u);
    EXPECT_EQ(t.top->childrenCount(), 3u);
    t.top->addChildFile(nullptr);
    EXPECT_EQ(t.top->childrenCount(), 3u) << "a null child is not added";
}

TEST(Node, LastComponentsCompareWithoutExtensionAndCase) {
    struct Case {
        std::string a, b;
        bool same;
    };
    for (const Case& c :
         {Case{"/a/Photo.JPG", "/x/photo.jpeg", true}, Case{"/a/Photo.JPG", "/x/photo2.jpeg", false},
          Case{"/a/archive.tar.gz", "/b/ARCHIVE.tar.bz2", true}, Case{"/a/.bashrc", "/b/.BASHRC", true},
          Case{"/a/noext", "/b/noext.txt", true},
          Case{"/a/Stra\xC3\x9F"
               "e.txt",
               "/b/STRASSE.md", true}})
        EXPECT_EQ(file(c.a)->areLastComponentsTheSame(c.b), c.same) << c.a << " " << c.b;
    EXPECT_EQ(file("/a/photo.jpeg")->title(), "photo");
    EXPECT_EQ(folder("/a/My.Folder")->title(), "My.Folder");
    EXPECT_EQ(folder("/a/Pics.photolibrary", kNodeTypeIPhotoLibrary)->title(), "Pics");
}

TEST(Node, AFileIsNeverItsOwnDuplicateAndIntegrityFollowsTheDisk) {
    test::TempTree tree;
    const std::string a = tree.file("a.bin", "same content");
    const std::string b = tree.file("b.bin", "same content");
    auto fa = file(a, 12);
    auto fa2 = file(a, 12);
    auto fb = file(b, 12);
    EXPECT_TRUE(fa->isDuplicateOf(*fb));
    EXPECT_FALSE(fa->isDuplicateOf(*fa2)) << "same path";
    auto dir = folder(tree / "d");
    EXPECT_FALSE(fa->isDuplicateOf(*dir)) << "other class";

    EXPECT_TRUE(fa->checkForIntegrity());
    tree.file("a.bin", "grown content!");
    EXPECT_FALSE(fa->checkForIntegrity());
    EXPECT_FALSE(file(tree / "gone", 1)->checkForIntegrity());
}

TEST(Node, SelectionStateIsAnnouncedOnlyOnRealChanges) {
    auto f = file("/a/x.jpg");
    int notices = 0;
    f->changeNotifier().addObserver("needToRemove", [&](std::string_view, ChangePhase phase) {
        if (phase == ChangePhase::Did)
            ++notices;
    });
    f->setNeedToRemove(true);
    f->setNeedToRemove(true);
    f->setNeedToRemove(false);
    MainQueue::shared().drain();
    EXPECT_EQ(notices, 2);
    EXPECT_STREQ(CVFile::stringSelectionType(kSelectionAutomatic), "automatic");
    EXPECT_STREQ(CVFile::stringSelectionType(kSelectionNone), "none");
    EXPECT_STREQ(CVFile::stringSelectionType(static_cast<SelectionType>(9)), "unknown");
}

TEST(Node, FilesAreTypedLazilyAndKeepTheirTypeIdentifier) {
    auto song = file("/m/song.FLAC");
    EXPECT_EQ(song->type(), kNodeTypeAudio);
    EXPECT_EQ(song->uti(), "public.flac");
    EXPECT_EQ(file("/m/doc.pdf")->type(), kNodeTypeDocument);
    EXPECT_EQ(file("/m/blob.xyz123")->type(), kNodeTypeOther);
}

TEST(Node, FilesInsideAnITunesLibraryCarryTheirTrackRecord) {
    test::TempTree tree;
    const std::string song = tree.file("iTunes/Music/Band/song.mp3", "x");
    const PropertyValue library(PropertyValue::Dictionary{
        {"Tracks",
         PropertyValue::Dictionary{{"7", PropertyValue::Dictionary{{"Location", fileURLStringFromPath(song)},
                                                                   {"Name", "Song"},
                                                                   {"Rating", 60}}}}}});
    // Only the older file name exists: the record comes from it.
    tree.file("iTunes/iTunes Music Library.xml", propertyListData(library, PropertyListFormat::XML));
    auto root = folder(tree / "iTunes", kNodeTypeITunesLibrary);
    auto music = folder(tree / "iTunes/Music");
    auto f = file(song, 1);
    auto stray = file(tree / "iTunes/Music/stray.mp3", 1);
    root->addChildFile(music);
    music->addChildFile(f);
    music->addChildFile(stray);
    CViMediaManager::sharedInstance().rescan();
    EXPECT_EQ(*f->info()["TrackName"].asString(), "Song");
    EXPECT_EQ(f->info()["Rating"].toInt64(), 60);
    EXPECT_EQ(stray->info().count(), 0u) << "a file the library does not list has an empty record";
}

TEST(Node, InfoIsEmptyOutsideLibraries) {
    auto plain = file("/a/b.jpg");
    EXPECT_TRUE(plain->info().isDictionary());
    EXPECT_EQ(plain->info().count(), 0u);
}

TEST(Node, PathComponentsStartAtTheGroupBase) {
    test::TempTree tree;
    const std::string& root = tree.path();
    auto deep = file(root + "/a/x/photo.jpg");
    auto shallow = file(root + "/b/photo.jpg");
    auto group = CVGroup::initWithCVFile(deep);
    group->addFile(shallow);
    // The base is the folder above the common folder: components start at the tree.
    std::vector<std::string> sources;
    for (const auto& component : deep->pathComponents()) {
        EXPECT_EQ(component.kind, kComponentFolder);
        sources.push_back(component.source);
    }
    EXPECT_EQ(sources, (std::vector<std::string>{root, root + "/a", root + "/a/x"}));
    ASSERT_TRUE(deep->parentFolderPathComponent());
    EXPECT_EQ(deep->parentFolderPathComponent()->source, root + "/a/x");
    EXPECT_EQ(deep->parentFolderPathComponent()->title, "x");
    const std::string treeName = lastPathComponent(root);
    EXPECT_EQ(shallow->displayElements(), (std::vector<std::string>{treeName, "b", "photo.jpg"}));
    // Outside any group every folder from the top counts.
    auto loose = file("/srv/m/a.txt");
    EXPECT_EQ(loose->displayElements(), (std::vector<std::string>{"srv", "m", "a.txt"}));
}

TEST(Node, LibraryFilesTakeTheirComponentsFromTheLibraryRecord) {
    struct Case {
        NodeType rootType;
        PropertyValue info;
        std::vector<std::pair<std::int32_t, std::string>> expected; // kind, title
    };
    PropertyValue track = PropertyValue(PropertyValue::Dictionary{});
    track.set("ArtistName", "Band");
    track.set("AlbumName", "First");
    PropertyValue photo = PropertyValue(PropertyValue::Dictionary{});
    photo.set("EventID", "42");
    photo.set("EventName", "Summer");
    const std::vector<Case> cases = {
        {kNodeTypeITunesLibrary, track, {{kComponentArtist, "Band"}, {kComponentAlbum, "First"}}},
        {kNodeTypeCurrentITunesLibrary, track, {{kComponentArtist, "Band"}, {kComponentAlbum, "First"}}},
        {kNodeTypeIPhotoLibrary, photo, {{kComponentEvent, "Summer"}}},
        {kNodeTypeIPhotoLibrary, PropertyValue(PropertyValue::Dictionary{}), {{kComponentFolder, "lib"}}},
        {kNodeTypePackage, track, {{kComponentFolder, "lib"}}},
    };
    for (const auto& c : cases) {
        auto library = folder("/m/lib", c.rootType);
        auto member = file("/m/lib/song.mp3");
        library->addChildFile(member);
        member->setInfo(c.info);
        std::vector<std::pair<std::int32_t, std::string>> got;
        for (const auto& component : member->pathComponents())
            got.emplace_back(component.kind, component.title);
        // Regular components of a file in no group start at the top: keep the last one.
        if (!got.empty() && got.front().first == kComponentFolder)
            got.erase(got.begin(), got.end() - 1);
        EXPECT_EQ(got, c.expected) << "root type " << c.rootType;
    }
    const auto library = folder("/m/lib", kNodeTypeIPhotoLibrary);
    auto member = file("/m/lib/p.jpg");
    library->addChildFile(member);
    member->setInfo(photo);
    ASSERT_EQ(member->pathComponents().size(), 1u);
    EXPECT_EQ(member->pathComponents()[0].source, "42") << "an event is selected by its id";
}

TEST(Node, ChildrenToRemoveFollowTheGroupOrder) {
    auto a = file("/g/a");
    auto b = file("/g/b");
    auto c = file("/g/c");
    auto group = CVGroup::initWithCVFile(a);
    group->addFile(b);
    group->addFile(c);
    c->setNeedToRemove(true);
    a->setNeedToRemove(true);
    const auto marked = group->childrenToRemove();
    ASSERT_EQ(marked.size(), 2u);
    EXPECT_EQ(marked[0].get(), a.get());
    EXPECT_EQ(marked[1].get(), c.get());
}

TEST(Node, DatesComeFromTheDiskAndTheWalksTimesRoundDown) {
    test::TempTree tree;
    const std::string path = tree.file("dated.txt", "x");
    for (const std::int64_t seconds : {std::int64_t{946684800}, std::int64_t{-86400} * 400}) {
        const timespec times[2] = {{seconds, 0}, {seconds, 500000000}};
        ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
        const auto modified = file(path)->modifiedDate();
        ASSERT_TRUE(modified);
        EXPECT_DOUBLE_EQ(modified->secondsSince1970, static_cast<double>(seconds) + 0.5);
    }
    if (const auto created = file(path)->creationDate()) {
        const auto now = static_cast<double>(std::time(nullptr));
        EXPECT_LE(created->secondsSince1970, now + 2);
        EXPECT_GE(created->secondsSince1970, now - 600) << "the birth time, not the modification time";
    }
    // The walk's time to the nanosecond; whole seconds round down, also before 1970.
    auto timed = file("/t/x");
    timed->setStatMTimeNanoseconds(-1);
    EXPECT_EQ(timed->statMTime(), -1);
    timed->setStatMTimeNanoseconds(1500000000);
    EXPECT_EQ(timed->statMTime(), 1);
    timed->setStatMTime(std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(timed->statMTime(), std::numeric_limits<std::int64_t>::max()) << "kept in seconds";
    timed->setStatMTime(-2208988800);
    EXPECT_EQ(timed->statMTimeNanoseconds(), -2208988800LL * 1000000000);
    EXPECT_FALSE(file(tree / "missing")->modifiedDate());
    EXPECT_FALSE(file(tree / "missing")->creationDate());
}

TEST(Node, StatusChangeTimesKeepEveryValue) {
    // Kept in 32 bits in the node when they fit, elsewhere when not; each reads back whole.
    auto timed = file("/t/x");
    for (const std::int64_t seconds :
         {std::int64_t{0}, std::int64_t{1790000000}, std::int64_t{0xfffffffe}, std::int64_t{0xffffffff},
          std::int64_t{0x100000000}, std::int64_t{-1}, std::numeric_limits<std::int64_t>::min(),
          std::numeric_limits<std::int64_t>::max(), std::int64_t{1700000000}}) {
        timed->setStatCTime(seconds);
        EXPECT_EQ(timed->statCTime(), seconds);
    }
}

} // namespace
} // namespace corvel

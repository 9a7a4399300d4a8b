#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <set>
#include <unistd.h>

#include "platform/trash_directory_sizes.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

// What `du -B1 -s` says of a path; nothing when du cannot be run.
std::optional<std::uint64_t> duBytes(const std::string& path) {
    FILE* pipe = ::popen(("du -B1 -s '" + path + "' 2>/dev/null").c_str(), "r");
    if (!pipe)
        return std::nullopt;
    unsigned long long bytes = 0;
    const int read = std::fscanf(pipe, "%llu", &bytes);
    if (::pclose(pipe) != 0 || read != 1)
        return std::nullopt;
    return bytes;
}

TEST(TrashDirectorySizes, LinesAreReplacedAddedAndDroppedWhenTheFolderIsGone) {
    const std::set<std::string> present = {"kept", "My Folder", "old"};
    const auto stillTrashed = [&](const std::string& name) { return present.contains(name); };
    const std::string text = "4096 1700000000 kept\n"
                             "8192 1700000001 gone\n"
                             "not a line the cache knows\n"
                             "12288 1700000002 My%20Folder\n"
                             "\n"
                             "100 1600000000 old\n";
    EXPECT_EQ(updatedDirectorySizes(text, "old", 20480, 1700000100, stillTrashed),
              "4096 1700000000 kept\n"
              "not a line the cache knows\n"
              "12288 1700000002 My%20Folder\n"
              "20480 1700000100 old\n");
    EXPECT_EQ(updatedDirectorySizes("", "caf\xff dir", 4096, 5, stillTrashed), "4096 5 caf%FF%20dir\n");
    EXPECT_EQ(updatedDirectorySizes("4096 5 a", "b", 1, 2, [](const std::string&) { return true; }),
              "4096 5 a\n1 2 b\n");
}

TEST(TrashDirectorySizes, DiskUsageCountsBlocksAsDuDoes) {
    test::TempTree tree;
    tree.file("d/a", std::string(10000, 'a'));
    tree.file("d/sub/b", std::string(5000, 'b'));
    tree.file("d/sub/deeper/c", "c");
    tree.file("d/empty");
    tree.symlink("d/link", "/etc/passwd");
    ASSERT_EQ(::link((tree / "d/a").c_str(), (tree / "d/sub/hard-a").c_str()), 0);
    const auto expected = duBytes(tree / "d");
    if (!expected)
        GTEST_SKIP() << "du is not available";
    EXPECT_EQ(diskUsageOfTree(tree / "d"), *expected);
    EXPECT_GT(*expected, 15000u);
    EXPECT_EQ(diskUsageOfTree(tree / "missing"), 0u);
}

TEST(TrashDirectorySizes, RecordWritesTheFileAtomicallyAndLeavesNoTemporaryFile) {
    test::TempTree tree;
    tree.folder("Trash/files/one");
    tree.folder("Trash/files/two words");
    tree.file("Trash/directorysizes", "4096 1 one\n999 2 vanished\n");
    const int trash = ::open((tree / "Trash").c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(trash, 0);
    CVError error;
    ASSERT_TRUE(recordTrashedFolderSize(trash, tree / "Trash", "two words", 8192, 1700000000, &error))
        << error.localizedDescription();
    ::close(trash);
    EXPECT_EQ(test::TempTree::read(tree / "Trash/directorysizes"),
              "4096 1 one\n8192 1700000000 two%20words\n");
    // Nothing left over from the write.
    std::set<std::string> listed;
    if (DIR* dir = ::opendir((tree / "Trash").c_str())) {
        while (const dirent* entry = ::readdir(dir))
            if (std::string(entry->d_name) != "." && std::string(entry->d_name) != "..")
                listed.insert(entry->d_name);
        ::closedir(dir);
    }
    const std::set<std::string> names = {"directorysizes", "files"};
    EXPECT_EQ(listed, names);
}

} // namespace
} // namespace corvel

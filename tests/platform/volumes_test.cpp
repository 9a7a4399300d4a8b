#include <gtest/gtest.h>

#include "platform/volumes.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

TEST(Volumes, MountInfoLinesAreParsedWithEscapes) {
    test::TempTree tree;
    const std::string info =
        tree.file("mountinfo", "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
                               "23 22 0:5 / /proc rw,nosuid - proc proc rw\n"
                               "40 22 8:17 / /media/ada/My\\040Disk rw master:5 - vfat /dev/sdb1 rw\n"
                               "41 22 0:50 / /mnt/share rw - nfs4 server:/export rw\n"
                               "garbage line\n"
                               "42 22 0:51 / relative rw - tmpfs tmpfs rw\n");
    const auto table = readMountTable(info);
    ASSERT_EQ(table.size(), 4u);
    EXPECT_EQ(table[2].mountPoint, "/media/ada/My Disk");
    EXPECT_EQ(table[2].fileSystemType, "vfat");
    EXPECT_EQ(table[3].source, "server:/export");

    struct Case {
        std::string path, volume;
    };
    for (const Case& c :
         {Case{"/media/ada/My Disk/photos/a.jpg", "/media/ada/My Disk"},
          Case{"/media/ada/My Disk", "/media/ada/My Disk"}, Case{"/media/ada/My Disk2/x", "/"},
          Case{"/proc/self", "/proc"}, Case{"/processes", "/"}, Case{"/", "/"}})
        EXPECT_EQ(volumePathOfPath(c.path, table), c.volume) << c.path;
}

TEST(Volumes, ThisMachinesProcAndRootVolumes) {
    EXPECT_EQ(volumePathOfPath("/proc/self/status"), "/proc");
    EXPECT_EQ(volumePathOfPath("/"), "/");
    EXPECT_TRUE(isLocalVolume("/"));
    EXPECT_FALSE(isLocalVolume("/no/such/path"));
    EXPECT_TRUE(readMountTable("/no/such/mountinfo").empty());
}

} // namespace
} // namespace corvel

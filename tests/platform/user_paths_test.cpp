#include <cstdlib>
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/user_paths.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

TEST(UserPaths, UserFoldersAreReadFromUserDirsFile) {
    test::TempTree tree;
    const std::string file =
        tree.file("user-dirs.dirs", "# written by xdg-user-dirs-update\n"
                                    "XDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"\n"
                                    "XDG_DOWNLOAD_DIR=\"$HOME/Downloads/\"\n"
                                    "XDG_PICTURES_DIR=\"/data/Bilder mit \\\"Zitat\\\"\"\n"
                                    "XDG_MUSIC_DIR=\"$HOME\"\n"
                                    "XDG_VIDEOS_DIR=relative-and-unquoted\n"
                                    "XDG_DOCUMENTS_DIR=\"$HOME/Old\"\n"
                                    "XDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"\n"
                                    "XDG_TEMPLATES_DIR=\"$HOME/Vorlagen\"\n");
    const std::string home = "/home/ada";
    struct Case {
        UserDirectory kind;
        std::string expected;
    };
    for (const Case& c :
         {Case{UserDirectory::Desktop, "/home/ada/Schreibtisch"},
          Case{UserDirectory::Downloads, "/home/ada/Downloads"},
          Case{UserDirectory::Pictures, "/data/Bilder mit \"Zitat\""},
          Case{UserDirectory::Music, "/home/ada/Music"}, Case{UserDirectory::Videos, "/home/ada/Videos"},
          Case{UserDirectory::Documents, "/home/ada/Dokumente"},
          Case{UserDirectory::Templates, "/home/ada/Vorlagen"},
          Case{UserDirectory::PublicShare, "/home/ada/Public"}})
        EXPECT_EQ(userDirectoryFromFile(c.kind, file, home), c.expected);
    EXPECT_EQ(userDirectoryFromFile(UserDirectory::Desktop, tree / "missing", home), "/home/ada/Desktop");
}

TEST(UserPaths, HomeAndAccountComeFromThePasswordDatabase) {
    EXPECT_EQ(realHomeDirectory()[0], '/');
    EXPECT_FALSE(accountName().empty());
    const char* saved = std::getenv("HOME");
    ::setenv("HOME", "/tmp/elsewhere", 1);
    EXPECT_EQ(homeDirectory(), "/tmp/elsewhere");
    EXPECT_EQ(expandTilde("~/Pictures"), "/tmp/elsewhere/Pictures");
    EXPECT_EQ(expandTilde("~"), "/tmp/elsewhere");
    EXPECT_EQ(expandTilde("/abs/~"), "/abs/~");
    EXPECT_NE(realHomeDirectory(), "/tmp/elsewhere");
    saved ? ::setenv("HOME", saved, 1) : ::unsetenv("HOME");
}

} // namespace
} // namespace corvel

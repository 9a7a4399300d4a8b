#include <cerrno>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/file_io.h"
#include "platform/property_list.h"
#include "support/run_in_child.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

// What is at the path being read, and how the read must fail.
struct Refusal {
    const char* name;
    std::function<std::string(const test::TempTree&)> make;
    bool followLink;
    std::size_t maxBytes;
    const char* domain;
    int code;
};

class RegularFileRefusals : public testing::TestWithParam<Refusal> {
protected:
    test::TempTree tree;
};

// Runs in a child: a read that blocks (a fifo opened without O_NONBLOCK) ends in a
// timeout instead of hanging the test program.
TEST_P(RegularFileRefusals, FailAtOnceWithoutReading) {
    const Refusal& c = GetParam();
    const std::string path = c.make(tree);
    const int answer = test::runInChild([&] {
        std::string out = "untouched";
        CVError error;
        if (readRegularFile(path, out, RegularFileRead{c.maxBytes, c.followLink, {}}, &error))
            return 1;
        if (error.domain != c.domain || error.code != c.code)
            return 2;
        if (error.localizedDescription().find(path) == std::string::npos)
            return 3;
        return out.empty() ? 0 : 4;
    });
    EXPECT_EQ(answer, 0) << "-1: the read hung; 1: it succeeded; 2: wrong error; 3: no path; 4: output kept";
}

INSTANTIATE_TEST_SUITE_P(
    NotRegularOrTooLarge, RegularFileRefusals,
    testing::Values(Refusal{"Fifo",
                            [](const test::TempTree& root) {
                                std::string p = root / "fifo";
                                ::mkfifo(p.c_str(), 0600);
                                return p;
                            },
                            true, 1024, kCorvelFileErrorDomain, EINVAL},
                    Refusal{"CharacterDevice", [](const test::TempTree&) { return std::string("/dev/zero"); },
                            true, std::size_t{1} << 30, kCorvelFileErrorDomain, EINVAL},
                    Refusal{"Folder", [](const test::TempTree& root) { return root.folder("folder"); }, true,
                            1024, kCorvelFileErrorDomain, EINVAL},
                    Refusal{"LinkNotFollowed",
                            [](const test::TempTree& root) {
                                const std::string target = root.file("target", "bytes");
                                std::string p = root / "link";
                                ::symlink(target.c_str(), p.c_str());
                                return p;
                            },
                            false, 1024, kPosixErrorDomain, ELOOP},
                    Refusal{
                        "LargerThanTheLimit",
                        [](const test::TempTree& root) { return root.file("big", std::string(2048, 'x')); },
                        true, 2047, kCorvelFileErrorDomain, EFBIG},
                    Refusal{"Missing", [](const test::TempTree& root) { return root / "missing"; }, true,
                            1024, kPosixErrorDomain, ENOENT}),
    [](const testing::TestParamInfo<Refusal>& param) { return std::string(param.param.name); });

TEST(RegularFileRead, ReadsARegularFileWholeAndThroughALinkWhenAllowed) {
    test::TempTree tree;
    const std::string bytes(200'000, 'a');
    const std::string path = tree.file("plain", bytes);
    const std::string link = tree / "link";
    ASSERT_EQ(::symlink(path.c_str(), link.c_str()), 0);
    std::string out;
    CVError error;
    ASSERT_TRUE(readRegularFile(path, out, RegularFileRead{bytes.size(), false, {}}, &error));
    EXPECT_EQ(out, bytes);
    ASSERT_TRUE(readRegularFile(link, out, RegularFileRead{bytes.size(), true, {}}, &error));
    EXPECT_EQ(out, bytes);
}

TEST(RegularFileRead, AStopRequestEndsTheReadBetweenChunks) {
    test::TempTree tree;
    const std::string path = tree.file("plain", std::string(300'000, 'a'));
    int polls = 0;
    std::size_t delivered = 0;
    CVError error;
    EXPECT_FALSE(readRegularFileChunks(
        path, RegularFileRead{1 << 20, true, [&] { return ++polls > 2; }},
        [&](std::string_view chunk) {
            delivered += chunk.size();
            return true;
        },
        &error));
    EXPECT_EQ(error.code, ECANCELED);
    EXPECT_EQ(polls, 3);
    EXPECT_EQ(delivered, std::size_t{2} * 65536) << "two chunks, then the stop";

    // A consumer that refuses more ends the read the same way.
    EXPECT_FALSE(readRegularFileChunks(
        path, RegularFileRead{1 << 20, true, {}}, [](std::string_view) { return false; }, &error));
    EXPECT_EQ(error.code, ECANCELED);
}

TEST(RegularFileRead, PropertyListsAreNeverReadFromAFifo) {
    test::TempTree tree;
    const std::string fifo = tree / "prefs.plist";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const int answer = test::runInChild([&] {
        PropertyValue out;
        CVError error;
        return readPropertyListFile(fifo, out, &error) ? 1 : 0;
    });
    EXPECT_EQ(answer, 0) << "-1: the read hung";
}

} // namespace
} // namespace corvel

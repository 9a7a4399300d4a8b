// Classes of equal files: sorted on one thread from digests, and ahead of the
// comparison by reader threads that share the groups in chunks.

#include <atomic>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "engine/node.h"
#include "scan/size_group_reader.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

bool always() {
    return true;
}

// Size groups of files whose bytes take few values, so that many are equal: empty,
// kept whole, read whole and not kept, sampled; one group larger than the window.
class Groups {
public:
    Groups() {
        std::mt19937 random(23);
        static constexpr std::size_t kSizes[] = {0, 1, 64, 4096, 70000, 600000};
        static constexpr std::size_t kCounts[] = {3, 40, 7, SizeGroupReader::kWindow + 30, 0, 12};
        for (std::size_t g = 0; g < std::size(kSizes); ++g) {
            auto& group = m_groups.emplace_back();
            for (std::size_t i = 0; i < kCounts[g]; ++i) {
                // Files of a group share their start, and differ (if at all) at one of two places.
                std::string contents(kSizes[g], 'x');
                if (!contents.empty()) {
                    contents[contents.size() / 2] = static_cast<char>('a' + random() % 3);
                    contents.back() = static_cast<char>('a' + random() % 2);
                }
                const std::string path =
                    m_tree.file("g" + std::to_string(g) + "/f" + std::to_string(i) + ".bin", contents);
                m_nodes.push_back(std::make_shared<CVFile>(path, "", kSizes[g]));
                group.push_back(m_nodes.back().get());
            }
        }
    }
    const std::vector<std::vector<CVFile*>>& all() const { return m_groups; }
    // Places as a size group would give them: every other slot holds something else.
    static std::vector<std::size_t> positions(const std::vector<CVFile*>& files) {
        std::vector<std::size_t> places;
        for (std::size_t i = 0; i < files.size(); ++i)
            places.push_back(2 * i + 1);
        return places;
    }
    static EqualClasses reference(const std::vector<CVFile*>& files) {
        std::vector<SignatureDigest> digests;
        digests.reserve(files.size());
        for (CVFile* file : files)
            digests.push_back(digestOfFile(*file));
        return equalClasses(files, positions(files), digests, always);
    }

private:
    test::TempTree m_tree;
    std::vector<std::shared_ptr<CVFile>> m_nodes;
    std::vector<std::vector<CVFile*>> m_groups;
};

void expectSameClasses(const EqualClasses& actual, const EqualClasses& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t c = 0; c < actual.size(); ++c) {
        ASSERT_EQ(actual[c].size(), expected[c].size()) << "class " << c;
        for (std::size_t m = 0; m < actual[c].size(); ++m) {
            EXPECT_EQ(actual[c][m].file, expected[c][m].file) << "class " << c << " member " << m;
            EXPECT_EQ(actual[c][m].position, expected[c][m].position);
            EXPECT_EQ(actual[c][m].item.has_value(), expected[c][m].item.has_value());
        }
    }
}

TEST(EqualClasses, AreConfirmedByteForByteWhateverTheDigestsSay) {
    test::TempTree tree;
    const auto node = [&](const std::string& name, const std::string& contents) {
        return std::make_shared<CVFile>(tree.file(name, contents), "", contents.size());
    };
    const std::string a(5000, 'a');
    std::string b = a;
    b[4000] = 'b';
    const auto a1 = node("a1", a), b1 = node("b1", b), a2 = node("a2", a), b2 = node("b2", b);
    const auto a3 = node("a3", a), gone = node("gone", a), shrunk = node("shrunk", a);
    std::vector<CVFile*> files{a1.get(), b1.get(), a2.get(), gone.get(), b2.get(), shrunk.get(), a3.get()};
    std::vector<SignatureDigest> digests;
    digests.reserve(files.size());
    for (CVFile* file : files)
        digests.push_back(digestOfFile(*file));
    // Every digest made equal, as a hash collision would; some bytes not kept.
    for (auto& digest : digests)
        digest.hash = 42;
    digests[2].bytes.reset();
    digests[4].bytes.reset();
    // Gone and shrunk since their digests were taken: they match nothing.
    std::filesystem::remove(tree / "gone");
    std::filesystem::resize_file(tree / "shrunk", 10);
    digests[3].bytes.reset();
    digests[5].bytes.reset();

    const EqualClasses classes = equalClasses(files, {10, 11, 12, 13, 14, 15, 16}, digests, always);
    ASSERT_EQ(classes.size(), 2u);
    ASSERT_EQ(classes[0].size(), 3u);
    EXPECT_EQ(classes[0][0].file, a1.get());
    EXPECT_EQ(classes[0][1].file, a2.get());
    EXPECT_EQ(classes[0][2].file, a3.get());
    EXPECT_EQ(classes[0][2].position, 16u);
    ASSERT_EQ(classes[1].size(), 2u);
    EXPECT_EQ(classes[1][0].file, b1.get());
    EXPECT_EQ(classes[1][1].file, b2.get());
    EXPECT_TRUE(classes[1][1].item.has_value());
}

TEST(SizeGroupReader, GivesTheClassesOfOneThreadForAnyNumberOfReaders) {
    const Groups groups;
    std::vector<EqualClasses> expected;
    for (const auto& files : groups.all())
        expected.push_back(Groups::reference(files));
    ASSERT_GT(expected[3].size(), 1u) << "the large group must hold several classes";
    for (unsigned threads : {0u, 1u, 2u, 3u}) {
        SCOPED_TRACE("threads " + std::to_string(threads));
        SizeGroupReader reader(threads, always);
        for (const auto& files : groups.all())
            reader.enqueue(files, Groups::positions(files));
        for (std::size_t g = 0; g < groups.all().size(); ++g) {
            SCOPED_TRACE("group " + std::to_string(g));
            expectSameClasses(reader.take(), expected[g]);
        }
        EXPECT_EQ(reader.pendingFiles(), 0u);
        EXPECT_TRUE(reader.take().empty()) << "nothing queued";
    }
}

TEST(SizeGroupReader, ClearDropsTheQueuedGroupsAndTheReaderGoesOn) {
    const Groups groups;
    const auto& all = groups.all();
    for (unsigned threads : {0u, 2u}) {
        SizeGroupReader reader(threads, always);
        for (const auto& files : all)
            reader.enqueue(files, Groups::positions(files));
        expectSameClasses(reader.take(), Groups::reference(all[0]));
        reader.clear();
        EXPECT_EQ(reader.pendingFiles(), 0u);
        EXPECT_TRUE(reader.take().empty());
        reader.enqueue(all[1], Groups::positions(all[1]));
        expectSameClasses(reader.take(), Groups::reference(all[1]));
        // Destroyed with groups still queued: the readers stop without reading them all.
        reader.enqueue(all[3], Groups::positions(all[3]));
    }
}

TEST(SizeGroupReader, AStopEndsTheWorkWithWhatIsFound) {
    const Groups groups;
    std::atomic<bool> going{true};
    SizeGroupReader reader(2, [&] { return going.load(); });
    for (const auto& files : groups.all())
        reader.enqueue(files, Groups::positions(files));
    going = false;
    for (std::size_t g = 0; g < groups.all().size(); ++g)
        for (const auto& equal : reader.take())
            EXPECT_GE(equal.size(), 2u);
    reader.clear();
    EXPECT_EQ(reader.pendingFiles(), 0u);
}

} // namespace
} // namespace corvel

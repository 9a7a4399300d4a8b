// Classes of equal files: sorted on one thread from digests, and ahead of the
// comparison by reader threads that share the groups in chunks.

#include <atomic>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
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
            digests.push_back(digestOfFile(*file, nullptr));
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
        digests.push_back(digestOfFile(*file, nullptr));
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

// A file written to between the walk and its reading holds more bytes than its size
// says; the bytes read up to that size may still match the others. Kept whole, sampled,
// and compared from disk (a text file too large to keep).
TEST(EqualClasses, AFileGrownSinceTheWalkPairsWithNothing) {
    for (const std::size_t size : {std::size_t{5000}, std::size_t{600000}, (std::size_t{16} << 20) + 1}) {
        SCOPED_TRACE(size);
        test::TempTree tree;
        const std::string contents(size, 'a');
        std::vector<std::shared_ptr<CVFile>> nodes;
        for (const char* name : {"a1.txt", "grown.txt", "a2.txt"})
            nodes.push_back(std::make_shared<CVFile>(tree.file(name, contents), "", size));
        tree.file("grown.txt", contents + "appended");
        std::vector<CVFile*> files;
        std::vector<SignatureDigest> digests;
        for (const auto& node : nodes) {
            files.push_back(node.get());
            digests.push_back(digestOfFile(*node, nullptr));
        }
        const EqualClasses classes = equalClasses(files, {0, 1, 2}, digests, always);
        ASSERT_EQ(classes.size(), 1u);
        ASSERT_EQ(classes[0].size(), 2u);
        EXPECT_EQ(classes[0][0].file, files[0]);
        EXPECT_EQ(classes[0][1].file, files[2]);
    }
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

// Size groups of one shape, for the kept-bytes budget: the files' contents are drawn from
// a few variants, so that many digests are shared and must be confirmed byte for byte.
struct BudgetShape {
    const char* name;
    std::size_t files;
    std::size_t size;
    std::size_t signature; // the bytes of one signature (sampled from 500,000 bytes up)
    std::size_t variants;  // distinct contents among the files
    std::size_t differsAt; // where the variants differ (they share everything before)
    std::size_t groups;    // size groups of this shape queued one after the other
};

void PrintTo(const BudgetShape& shape, std::ostream* os) {
    *os << shape.name;
}

class KeptBytesBudgetShapes : public testing::TestWithParam<BudgetShape> {
protected:
    void SetUp() override {
        const BudgetShape& shape = GetParam();
        std::mt19937 random(7);
        for (std::size_t g = 0; g < shape.groups; ++g) {
            auto& group = m_groups.emplace_back();
            for (std::size_t i = 0; i < shape.files; ++i) {
                std::string contents(shape.size, static_cast<char>('a' + g));
                const std::size_t variant = random() % shape.variants;
                for (std::size_t k = 0; k < 4 && shape.differsAt + k < shape.size; ++k)
                    contents[shape.differsAt + k] = static_cast<char>('0' + (variant >> (2 * k)) % 4);
                const std::string path =
                    m_tree.file("g" + std::to_string(g) + "/f" + std::to_string(i), contents);
                m_nodes.push_back(std::make_shared<CVFile>(path, "", shape.size));
                group.push_back(m_nodes.back().get());
            }
        }
    }

    // Every group's classes through a reader with this limit; checks that the bytes kept
    // never went beyond it and were all given back.
    std::vector<EqualClasses> classes(unsigned threads, std::uint64_t limit, std::uint64_t* peak) const {
        SizeGroupReader reader(threads, always, nullptr, limit);
        for (const auto& files : m_groups)
            reader.enqueue(files, Groups::positions(files));
        std::vector<EqualClasses> out;
        for (std::size_t g = 0; g < m_groups.size(); ++g)
            out.push_back(reader.take());
        EXPECT_LE(reader.keptBytes().peak(), limit);
        EXPECT_EQ(reader.keptBytes().used(), 0u) << "every kept byte is given back";
        *peak = reader.keptBytes().peak();
        return out;
    }

    test::TempTree m_tree;
    std::vector<std::shared_ptr<CVFile>> m_nodes;
    std::vector<std::vector<CVFile*>> m_groups;
};

TEST_P(KeptBytesBudgetShapes, ATinyBudgetFindsTheClassesOfAnUnboundedOne) {
    const BudgetShape& shape = GetParam();
    std::vector<EqualClasses> expected;
    std::size_t shared = 0;
    for (const auto& files : m_groups) {
        expected.push_back(Groups::reference(files));
        for (const auto& equal : expected.back())
            shared += equal.size();
    }
    ASSERT_GT(shared, shape.files / 2) << "most files must share their digest with another";
    std::uint64_t unbounded = 0;
    for (unsigned threads : {0u, 2u}) {
        SCOPED_TRACE("threads " + std::to_string(threads));
        const auto all = classes(threads, UINT64_MAX, &unbounded);
        for (std::size_t g = 0; g < all.size(); ++g)
            expectSameClasses(all[g], expected[g]);
        // No room at all, room for one signature, for a few, and one byte short of them.
        const std::uint64_t one = shape.signature;
        for (const std::uint64_t limit : {std::uint64_t{0}, one, 3 * one, 3 * one - 1}) {
            SCOPED_TRACE("limit " + std::to_string(limit));
            std::uint64_t peak = 0;
            const auto bounded = classes(threads, limit, &peak);
            for (std::size_t g = 0; g < bounded.size(); ++g)
                expectSameClasses(bounded[g], expected[g]);
            if (limit >= one) {
                EXPECT_GT(peak, 0u) << "signatures that fit are kept";
            }
        }
    }
    EXPECT_GT(unbounded, 3 * shape.signature) << "the shape must need more than the small budgets";
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, KeptBytesBudgetShapes,
    testing::Values(
        // Many files of one size, a few distinct contents among them.
        BudgetShape{"ManySameSizeFiles", 400, 4096, 4096, 6, 100, 1},
        // Files that share a long prefix and differ in their last bytes, a whole
        // kept signature of 64 KiB each.
        BudgetShape{"EqualPrefixesDifferingLate", 60, 65536, 65536, 5, 65532, 1},
        // Differences in the middle of sampled signatures (19,600 bytes kept of 600,000).
        BudgetShape{"SampledLargeFiles", 24, 600000, 19600, 3, 0, 1},
        // Several groups queued at once, sharing the one budget.
        BudgetShape{"SeveralGroupsAtOnce", 40, 20000, 20000, 4, 19990, 5}),
    [](const testing::TestParamInfo<BudgetShape>& shape) { return std::string(shape.param.name); });

TEST(KeptBytesBudget, TakesWhatFitsAndGivesItBack) {
    KeptBytesBudget budget(100);
    {
        KeptBytes a = makeKeptBytes(60, &budget);
        ASSERT_TRUE(a);
        EXPECT_FALSE(makeKeptBytes(41, &budget)) << "beyond the limit";
        KeptBytes b = makeKeptBytes(40, &budget);
        ASSERT_TRUE(b) << "exactly the limit";
        EXPECT_EQ(budget.used(), 100u);
        EXPECT_FALSE(makeKeptBytes(1, &budget));
    }
    EXPECT_EQ(budget.used(), 0u);
    EXPECT_EQ(budget.peak(), 100u);
    EXPECT_TRUE(makeKeptBytes(100, &budget));
    EXPECT_TRUE(makeKeptBytes(1 << 20, nullptr)) << "no budget: no limit";
}

} // namespace
} // namespace corvel

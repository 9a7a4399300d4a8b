// The digest hand-over: reader threads work ahead through a queue of files, one
// thread takes the digests in queue order, passing over some and clearing midway.

#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "engine/node.h"
#include "scan/digest_reader.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

// More files than the read-ahead window holds, of every signature kind: empty, kept
// whole, read whole and not kept, and sampled.
class ReaderFiles {
public:
    explicit ReaderFiles(std::size_t count) {
        std::mt19937 random(11);
        for (std::size_t i = 0; i < count; ++i) {
            static constexpr std::size_t kSizes[] = {0, 1, 100, 4096, 70000};
            const std::size_t size = i % 97 == 5 ? 600000 : kSizes[i % std::size(kSizes)];
            std::string contents(size, '\0');
            for (auto& c : contents)
                c = static_cast<char>(random() % 4); // few values: equal files are likely
            const std::string path = m_tree.file("f" + std::to_string(i) + ".bin", contents);
            m_nodes.push_back(std::make_shared<CVFile>(path, "", size));
        }
    }
    std::size_t size() const { return m_nodes.size(); }
    CVFile* operator[](std::size_t i) const { return m_nodes[i].get(); }
    std::vector<CVFile*> range(std::size_t from, std::size_t to) const {
        std::vector<CVFile*> files;
        for (std::size_t i = from; i < to && i < m_nodes.size(); ++i)
            files.push_back(m_nodes[i].get());
        return files;
    }

private:
    test::TempTree m_tree;
    std::vector<std::shared_ptr<CVFile>> m_nodes;
};

// A digest must be the one the file gives when read on its own.
void expectDigestOf(CVFile* file, const SignatureDigest& digest) {
    const SignatureDigest expected = digestOfFile(*file);
    const std::string name = file->path();
    ASSERT_EQ(digest.length, expected.length) << name;
    EXPECT_EQ(digest.hash, expected.hash) << name;
    EXPECT_EQ(digest.streamed, expected.streamed) << name;
    ASSERT_EQ(digest.keptLength(), expected.keptLength()) << name;
    if (digest.bytes) {
        EXPECT_EQ(std::memcmp(digest.bytes.get(), expected.bytes.get(), digest.length), 0) << name;
    }
    ASSERT_EQ(digest.item.has_value(), expected.item.has_value()) << name;
    if (digest.item) {
        EXPECT_TRUE(digest.item->exists) << name;
        EXPECT_EQ(digest.item->owner, expected.item->owner) << name;
    }
}

TEST(DigestReader, DigestsComeInQueueOrderWhateverIsPassedOverAndHowManyRead) {
    const ReaderFiles files(DigestReader::kWindow + 150);
    struct Case {
        unsigned threads;
        std::size_t takeEvery; // 1: every file; 3: every third, the rest passed over
    };
    const Case cases[] = {{0, 1}, {1, 1}, {2, 1}, {3, 1}, {2, 3}, {3, 7}, {1, 400}};
    for (const auto& c : cases) {
        SCOPED_TRACE("threads " + std::to_string(c.threads) + ", every " + std::to_string(c.takeEvery));
        DigestReader reader(c.threads);
        // Queued in batches of uneven length, as size groups are.
        for (std::size_t from = 0; from < files.size(); from += 13)
            reader.enqueue(files.range(from, from + 13));
        ASSERT_EQ(reader.pending(), files.size());
        for (std::size_t i = 0; i < files.size(); i += c.takeEvery)
            expectDigestOf(files[i], reader.take(files[i]));
        EXPECT_EQ(reader.pending(), (files.size() - 1) % c.takeEvery);
    }
}

TEST(DigestReader, AFileNeverQueuedIsReadAtOnceAndDropsTheQueue) {
    const ReaderFiles files(40);
    DigestReader reader(2);
    reader.enqueue(files.range(0, 20));
    expectDigestOf(files[5], reader.take(files[5]));
    expectDigestOf(files[30], reader.take(files[30]));
    EXPECT_EQ(reader.pending(), 0u);
    // Files that were queued before still give their own digests, read on demand.
    expectDigestOf(files[10], reader.take(files[10]));
    reader.enqueue(files.range(20, 40));
    for (std::size_t i = 20; i < 40; ++i)
        expectDigestOf(files[i], reader.take(files[i]));
}

TEST(DigestReader, ClearDropsTheQueueAndTheReaderGoesOn) {
    const ReaderFiles files(DigestReader::kWindow + 40);
    for (unsigned threads : {0u, 2u}) {
        DigestReader reader(threads);
        reader.enqueue(files.range(0, files.size()));
        expectDigestOf(files[0], reader.take(files[0]));
        expectDigestOf(files[1], reader.take(files[1]));
        reader.clear();
        EXPECT_EQ(reader.pending(), 0u);
        reader.enqueue(files.range(100, 120));
        for (std::size_t i = 100; i < 120; ++i)
            expectDigestOf(files[i], reader.take(files[i]));
        // Destroyed with files still queued: the readers stop without reading them all.
        reader.enqueue(files.range(0, files.size()));
    }
}

TEST(DigestReader, FilesThatVanishOrShrinkGiveNoDigest) {
    test::TempTree tree;
    const std::string gone = tree.file("gone.bin", std::string(5000, 'a'));
    const std::string shrunk = tree.file("shrunk.bin", std::string(5000, 'b'));
    const auto goneNode = std::make_shared<CVFile>(gone, "", 5000);
    const auto shrunkNode = std::make_shared<CVFile>(shrunk, "", 5000);
    std::filesystem::remove(gone);
    std::filesystem::resize_file(shrunk, 10);
    DigestReader reader(1);
    reader.enqueue({goneNode.get(), shrunkNode.get()});
    const SignatureDigest a = reader.take(goneNode.get());
    const SignatureDigest b = reader.take(shrunkNode.get());
    EXPECT_EQ(a.length, 0u);
    EXPECT_EQ(a.keptLength(), 0u);
    EXPECT_EQ(b.length, 0u);
    EXPECT_EQ(b.keptLength(), 0u);
}

} // namespace
} // namespace corvel

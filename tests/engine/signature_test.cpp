#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "engine/node.h"
#include "engine/node_type.h"
#include "engine/signature.h"
#include "support/temp_tree.h"

namespace corvel {
namespace {

// The byte every test file holds at an offset; a reader that reads the wrong place gets other bytes.
std::uint8_t byteAt(std::uint64_t offset) {
    const std::uint64_t x = (offset + 1) * 0x9E3779B97F4A7C15ULL;
    return static_cast<std::uint8_t>((x >> 29) ^ (x >> 47));
}

// What the sampled reader must collect, computed from the rule alone: the first 10000
// bytes, then 32 pieces of 300 bytes starting at 10000 + k * ((size - 10000) / 32).
std::vector<std::uint8_t> expectedSample(std::uint64_t size) {
    std::vector<std::uint8_t> out;
    if (32 * 300 + 10000 > size) {
        for (std::uint64_t o = 0; o < size; ++o)
            out.push_back(byteAt(o));
        return out;
    }
    for (std::uint64_t o = 0; o < 10000; ++o)
        out.push_back(byteAt(o));
    const std::uint64_t stride = (size - 10000) / 32;
    for (std::uint64_t k = 0; k < 32; ++k)
        for (std::uint64_t o = 0; o < 300; ++o)
            out.push_back(byteAt(10000 + k * stride + o));
    return out;
}

void writeRange(int fd, std::uint64_t from, std::uint64_t to) {
    std::vector<std::uint8_t> block(static_cast<std::size_t>(to - from));
    for (std::uint64_t o = from; o < to; ++o)
        block[static_cast<std::size_t>(o - from)] = byteAt(o);
    ASSERT_EQ(::pwrite(fd, block.data(), block.size(), static_cast<off_t>(from)),
              static_cast<ssize_t>(block.size()));
}

// A file of the given size holding byteAt everywhere a correct reader looks, and a
// margin around it; large files are sparse elsewhere (zeros).
std::string patternedFile(const test::TempTree& tree, const std::string& name, std::uint64_t size) {
    std::string path = tree / name;
    const int fd = ::open(path.c_str(), O_CREAT | O_RDWR | O_TRUNC, 0644);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(::ftruncate(fd, static_cast<off_t>(size)), 0);
    if (size <= (std::uint64_t{4} << 20)) {
        writeRange(fd, 0, size);
    } else {
        writeRange(fd, 0, 10000 + 1024);
        const std::uint64_t stride = (size - 10000) / 32;
        for (std::uint64_t k = 0; k < 32; ++k) {
            const std::uint64_t at = 10000 + k * stride;
            writeRange(fd, at > 1024 ? at - 1024 : 0, std::min(size, at + 300 + 1024));
        }
    }
    ::close(fd);
    return path;
}

TEST(Signature, TheSampledReaderReadsTheHeadAndThePiecesAtTheirOffsets) {
    test::TempTree tree;
    const std::uint64_t sizes[] = {19599,
                                   19600,
                                   19601,
                                   50000,
                                   499999,
                                   500000,
                                   500001,
                                   1234567,
                                   7777777,
                                   std::uint64_t{3} << 30,
                                   std::uint64_t{5000000000}};
    for (const std::uint64_t size : sizes) {
        SCOPED_TRACE(size);
        const std::string path = patternedFile(tree, "f" + std::to_string(size), size);
        std::uint64_t length = 0;
        const auto bytes = CVSignature::computeFileSignature(path, size, 32, 300, length);
        const auto expected = expectedSample(size);
        ASSERT_TRUE(bytes);
        ASSERT_EQ(length, expected.size());
        EXPECT_EQ(std::memcmp(bytes.get(), expected.data(), expected.size()), 0);
        ::unlink(path.c_str());
    }
}

TEST(Signature, AWholeFileReadOfFourGibibytesOrMoreKeepsTheLow32BitsOfTheSize) {
    test::TempTree tree;
    const std::uint64_t size = (std::uint64_t{4} << 30) + 100;
    const std::string path = patternedFile(tree, "big", size);
    std::uint64_t length = 0;
    const auto bytes = CVSignature::computeFileSignature(path, size, 1, size, length);
    ASSERT_TRUE(bytes);
    EXPECT_EQ(length, 100u);
    EXPECT_EQ(bytes[99], byteAt(99));
}

TEST(Signature, KindsFollowTypeAndSize) {
    struct Case {
        std::string uti;
        std::uint64_t size;
        NodeType nodeType;
        CVSignature::Kind kind;
    };
    const Case cases[] = {
        {"public.data", 499999, kNodeTypeOther, CVSignature::WholeFile},
        {"public.data", 500000, kNodeTypeOther, CVSignature::Sampled},
        {"public.jpeg", 500000, kNodeTypeImage, CVSignature::Sampled},
        {"public.plain-text", 2000000, kNodeTypeDocument, CVSignature::WholeFile},
        {"com.adobe.pdf", 2000000, kNodeTypeDocument, CVSignature::Sampled},
        {"public.plain-text", 2000000, kNodeTypeOther, CVSignature::Sampled},
        {"dyn.app", 10, kNodeTypeApplication, CVSignature::Bundle},
    };
    for (const auto& c : cases)
        EXPECT_EQ(CVSignature::getSignatureTypeWithUTI(c.uti, c.size, c.nodeType), c.kind)
            << c.uti << " " << c.size;
}

TEST(Signature, SamplingSeesOnlyTheSampledBytesOfLargeFiles) {
    test::TempTree tree;
    std::string content(600000, 'a');
    const std::string a = tree.file("a.bin", content);
    content[15000] =
        'b'; // between the head and the first piece's end? first piece starts at 10000: outside pieces
    content[10000 + 18281 + 5] = 'b';
    const std::string b = tree.file("b.bin", content);
    std::string inSample(600000, 'a');
    inSample[9999] = 'x';
    const std::string c = tree.file("c.bin", inSample);
    const CVSignature sa(a, 600000, kNodeTypeOther, "public.data");
    const CVSignature sb(b, 600000, kNodeTypeOther, "public.data");
    const CVSignature sc(c, 600000, kNodeTypeOther, "public.data");
    EXPECT_EQ(sa.length(), 19600u);
    EXPECT_TRUE(sa.isEqualTo(sb)) << "differences outside the samples are not seen";
    EXPECT_FALSE(sa.isEqualTo(sc));

    std::string small(499999, 'a');
    const std::string d = tree.file("d.bin", small);
    small[400000] = 'z';
    const std::string e = tree.file("e.bin", small);
    EXPECT_FALSE(CVSignature(d, 499999, kNodeTypeOther, "public.data")
                     .isEqualTo(CVSignature(e, 499999, kNodeTypeOther, "public.data")));
}

TEST(Signature, TextDocumentsCompareWholeEvenBeyondTheMemoryLimit) {
    test::TempTree tree;
    for (const std::uint64_t size : {std::uint64_t{2000000}, CVSignature::kMaxBufferedSignature + 4096}) {
        SCOPED_TRACE(size);
        std::string text(size, 'q');
        const std::string a = tree.file("a.txt", text);
        const std::string b = tree.file("b.txt", text);
        text[size - 2] = 'r';
        const std::string c = tree.file("c.txt", text);
        const CVSignature sa(a, size, kNodeTypeDocument, "public.plain-text");
        const CVSignature sb(b, size, kNodeTypeDocument, "public.plain-text");
        const CVSignature sc(c, size, kNodeTypeDocument, "public.plain-text");
        EXPECT_EQ(sa.type(), CVSignature::WholeFile);
        EXPECT_EQ(sa.length(), size);
        EXPECT_EQ(sa.isStreamed(), size > CVSignature::kMaxBufferedSignature);
        EXPECT_TRUE(sa.isEqualTo(sb));
        EXPECT_FALSE(sa.isEqualTo(sc)) << "a difference near the end is seen";
    }
}

TEST(Signature, LargeFilesThatDifferOutsideTheSamplesMatchUnlessTheyAreTextDocuments) {
    // Two 600000-byte files per case, differing in one byte that lies outside the head
    // and the sampled pieces: only a whole-file comparison tells them apart.
    struct Case {
        const char* name;
        NodeType nodeType; // unknown: typed from the name, as the walk leaves it
        CVSignature::Kind kind;
    };
    const Case cases[] = {
        {"notes.txt", kNodeTypeUnknown, CVSignature::WholeFile},
        {"page.html", kNodeTypeUnknown, CVSignature::WholeFile},
        {"table.csv", kNodeTypeUnknown, CVSignature::WholeFile},
        {"paper.pdf", kNodeTypeUnknown, CVSignature::Sampled},
        {"blob.bin", kNodeTypeUnknown, CVSignature::Sampled},
        {"photo.jpg", kNodeTypeUnknown, CVSignature::Sampled},
        {"notes.txt", kNodeTypeOther, CVSignature::Sampled},
    };
    test::TempTree tree;
    std::string data(600000, 'a');
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<char>('a' + i % 23);
    std::string changed = data;
    changed[15000] = '#';
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " of node type " + std::to_string(c.nodeType));
        auto a = std::make_shared<CVFile>(tree.file(std::string("a-") + c.name, data), "", data.size());
        auto b = std::make_shared<CVFile>(tree.file(std::string("b-") + c.name, changed), "", data.size());
        if (c.nodeType != 0) {
            a->setType(c.nodeType);
            b->setType(c.nodeType);
        }
        EXPECT_EQ(a->signature().type(), c.kind);
        EXPECT_EQ(a->isDuplicateOf(*b), c.kind == CVSignature::Sampled);
    }
}

TEST(Signature, BundlesCompareByTheirInfoPlistOnly) {
    test::TempTree tree;
    tree.file("A.app/Contents/Info.plist", "<plist>same</plist>");
    tree.file("A.app/Contents/MacOS/run", "one binary");
    tree.file("B.app/Contents/Info.plist", "<plist>same</plist>");
    tree.file("B.app/Contents/MacOS/run", "another binary");
    tree.file("C.app/Contents/Info.plist", "<plist>different</plist>");
    tree.folder("D.app/Contents");
    tree.folder("E.app/Contents");
    auto bundle = [&](const char* name) {
        return CVSignature(tree / name, 0, kNodeTypeApplication, "dyn.app");
    };
    EXPECT_TRUE(bundle("A.app").isEqualTo(bundle("B.app")));
    EXPECT_FALSE(bundle("A.app").isEqualTo(bundle("C.app")));
    EXPECT_EQ(bundle("D.app").length(), 0u);
    EXPECT_FALSE(bundle("D.app").isEqualTo(bundle("E.app"))) << "no property list, no match";
}

TEST(Signature, EmptyVanishedAndShrunkFilesMatchNothing) {
    test::TempTree tree;
    const std::string empty1 = tree.file("e1", "");
    const std::string empty2 = tree.file("e2", "");
    const CVSignature e1(empty1, 0, kNodeTypeOther, "public.data");
    EXPECT_EQ(e1.length(), 0u);
    EXPECT_FALSE(e1.isEqualTo(CVSignature(empty2, 0, kNodeTypeOther, "public.data")));
    EXPECT_FALSE(e1.isEqualTo(e1)) << "an empty signature equals nothing, not even itself";

    const CVSignature gone(tree / "vanished", 1000, kNodeTypeOther, "public.data");
    EXPECT_EQ(gone.length(), 0u);
    EXPECT_EQ(gone.bytes(), nullptr);

    const std::string shrunk = tree.file("s", std::string(700000, 'x'));
    ::truncate(shrunk.c_str(), 100000);
    EXPECT_EQ(CVSignature(shrunk, 700000, kNodeTypeOther, "public.data").length(), 0u);
    const std::string shrunkText = tree.file("s.txt", std::string(100, 'x'));
    EXPECT_EQ(CVSignature(shrunkText, 200, kNodeTypeDocument, "public.plain-text").length(), 0u);
    const std::string bigText = tree.file("big.txt", "tiny now");
    EXPECT_EQ(
        CVSignature(bigText, CVSignature::kMaxBufferedSignature + 10, kNodeTypeDocument, "public.plain-text")
            .length(),
        0u);
}

} // namespace
} // namespace corvel

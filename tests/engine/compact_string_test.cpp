// The compact string keeps any bytes, inside the object or on the heap, through every
// change between the two.

#include <gtest/gtest.h>
#include <string>

#include "engine/compact_string.h"

namespace corvel {
namespace {

// Texts around the inline limit of 15 bytes, with the bytes a tag could be mistaken for.
std::string text(std::size_t size) {
    std::string bytes(size, 'a');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i % 3 == 0 ? '\xff' : i % 3 == 1 ? '\0' : 'a' + i % 26);
    return bytes;
}

TEST(CompactString, KeepsEveryByteAcrossTheInlineLimit) {
    for (const std::size_t size : {0u, 1u, 14u, 15u, 16u, 17u, 255u, 256u, 5000u}) {
        const std::string bytes = text(size);
        const CompactString kept(bytes);
        EXPECT_EQ(kept.view(), bytes) << size;
    }
    static_assert(sizeof(CompactString) == 16);
}

TEST(CompactString, ChangesBetweenInlineAndHeapAndFromItsOwnBytes) {
    CompactString value;
    EXPECT_EQ(value.view(), "");
    for (const std::size_t size : {3u, 40u, 15u, 16u, 0u, 300u, 7u}) {
        value = text(size);
        EXPECT_EQ(value.view(), text(size)) << size;
    }
    // A part of its own bytes: the source is read before the old bytes are freed.
    value = std::string(100, 'x') + "tail";
    value = value.view().substr(90);
    EXPECT_EQ(value.view(), "xxxxxxxxxxtail");
    value = value.view().substr(10);
    EXPECT_EQ(value.view(), "tail");
}

} // namespace
} // namespace corvel

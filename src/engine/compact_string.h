#pragma once
// CompactString: bytes kept in 16 bytes. Up to 15 bytes live inside the object; longer
// texts live in one heap block of exactly their length. A scan keeps a name for every
// file and folder it walks, and std::string spends 32 bytes on the same 15.
//
// Not copyable (a node owns its name); one writer at a time, as for std::string.

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace corvel {

class CompactString {
public:
    CompactString() noexcept { setInlineSize(0); }
    explicit CompactString(std::string_view text) { assign(text); }
    ~CompactString() { release(); }
    CompactString(const CompactString&) = delete;
    CompactString& operator=(const CompactString&) = delete;

    // Replaces the bytes (text may lie inside this string).
    CompactString& operator=(std::string_view text) {
        CompactString replacement(text);
        std::swap(m_bytes, replacement.m_bytes);
        return *this;
    }

    std::string_view view() const noexcept {
        if (!onHeap())
            return {m_bytes, static_cast<unsigned char>(m_bytes[kTag])};
        const Heap heap = heapBlock();
        return {heap.data, heap.size};
    }

private:
    // Inline: the bytes from the start, their count in the last byte. On the heap: the
    // block's address (8 bytes), then its size (4 bytes), and kOnHeap in the last byte.
    static constexpr std::size_t kTag = 15;
    static constexpr std::size_t kInlineCapacity = 15;
    static constexpr std::size_t kSizeAt = sizeof(char*);
    static constexpr unsigned char kOnHeap = 0xFF;
    static_assert(kSizeAt + sizeof(std::uint32_t) <= kTag, "address and size fit before the tag");
    struct Heap {
        char* data;
        std::uint32_t size;
    };

    bool onHeap() const noexcept { return static_cast<unsigned char>(m_bytes[kTag]) == kOnHeap; }
    Heap heapBlock() const noexcept {
        Heap heap{};
        std::memcpy(&heap.data, m_bytes, sizeof heap.data);
        std::memcpy(&heap.size, m_bytes + kSizeAt, sizeof heap.size);
        return heap;
    }
    void setInlineSize(std::size_t size) noexcept { m_bytes[kTag] = static_cast<char>(size); }

    void assign(std::string_view text) {
        if (text.size() <= kInlineCapacity) {
            if (!text.empty())
                std::memcpy(m_bytes, text.data(), text.size());
            setInlineSize(text.size());
            return;
        }
        if (text.size() > UINT32_MAX)
            throw std::length_error("CompactString: text longer than 4 GiB");
        const Heap heap{new char[text.size()], static_cast<std::uint32_t>(text.size())};
        std::memcpy(heap.data, text.data(), text.size());
        std::memcpy(m_bytes, &heap.data, sizeof heap.data);
        std::memcpy(m_bytes + kSizeAt, &heap.size, sizeof heap.size);
        m_bytes[kTag] = static_cast<char>(kOnHeap);
    }
    void release() noexcept {
        if (onHeap())
            delete[] heapBlock().data;
    }

    char m_bytes[16];
};

static_assert(sizeof(CompactString) == 16);

} // namespace corvel

#pragma once
// makeNode<T>(arguments...): a node in a shared pointer, as std::make_shared makes it, but
// with the node and its counts in a block of a pool that hands out blocks of exactly that
// size. The general allocator gives a file node and its counts (104 bytes) a 112-byte
// block; a scan makes one per file it walks, so the pool saves 8 bytes a path.
//
// Each size of block has one pool for the whole process, shared by every thread (a lock
// guards it). A freed block goes back to its pool for the next node of that size, never
// to the system: after a large scan the process keeps that memory for the next one, as
// the general allocator mostly does too. Under the address sanitizer every block comes
// from the general allocator.

#include <cstddef>
#include <memory>
#include <utility>

#include "platform/thread_annotations.h"

namespace corvel {

// Whether pools hand out blocks: not under the address sanitizer, which must see each
// node on its own to catch a use after free. (The thread sanitizer checks the pools.)
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kBlockPoolsInUse = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool kBlockPoolsInUse = false;
#else
inline constexpr bool kBlockPoolsInUse = true;
#endif
#else
inline constexpr bool kBlockPoolsInUse = true;
#endif

// Blocks of one size, carved from chunks of about 64 KiB and aligned to 8 bytes.
// Thread-safe.
class BlockPool {
public:
    static constexpr std::size_t kAlignment = alignof(void*);
    // The largest block a pool hands out; larger objects come from the general allocator.
    static constexpr std::size_t kLargestBlock = 512;

    // The pool for blocks of blockSize bytes (a multiple of kAlignment, at most
    // kLargestBlock), made on first use and alive to the end of the process.
    static BlockPool& forSize(std::size_t blockSize);

    void* allocate() EXCLUDES(m_mutex);
    // Takes back a block this pool gave out.
    void deallocate(void* block) noexcept EXCLUDES(m_mutex);

    BlockPool(const BlockPool&) = delete;
    BlockPool& operator=(const BlockPool&) = delete;

private:
    explicit BlockPool(std::size_t blockSize) : m_blockSize(blockSize) {}
    ~BlockPool() = default;

    const std::size_t m_blockSize;
    Mutex m_mutex;
    void* m_freeBlocks GUARDED_BY(m_mutex) = nullptr; // each free block starts with the next one's address
    char* m_unused GUARDED_BY(m_mutex) = nullptr;     // the rest of the newest chunk
    char* m_unusedEnd GUARDED_BY(m_mutex) = nullptr;
};

// A standard allocator that takes single objects that a pool can hold from the pool of
// their size, and anything else from the general allocator. Stateless: any two compare equal.
template <typename T> class NodeAllocator {
public:
    using value_type = T;
    NodeAllocator() noexcept = default;
    template <typename U> NodeAllocator(const NodeAllocator<U>& /*other*/) noexcept {}

    T* allocate(std::size_t count) {
        if (count == 1 && kPooled)
            return static_cast<T*>(pool().allocate());
        return std::allocator<T>().allocate(count);
    }
    void deallocate(T* object, std::size_t count) noexcept {
        if (count == 1 && kPooled)
            pool().deallocate(object);
        else
            std::allocator<T>().deallocate(object, count);
    }

    template <typename U> bool operator==(const NodeAllocator<U>& /*other*/) const noexcept { return true; }

private:
    static constexpr bool kPooled = kBlockPoolsInUse && alignof(T) <= BlockPool::kAlignment &&
                                    sizeof(T) % BlockPool::kAlignment == 0 &&
                                    sizeof(T) <= BlockPool::kLargestBlock;
    static BlockPool& pool() {
        static BlockPool& pool = BlockPool::forSize(sizeof(T));
        return pool;
    }
};

template <typename T, typename... Arguments> std::shared_ptr<T> makeNode(Arguments&&... arguments) {
    return std::allocate_shared<T>(NodeAllocator<T>(), std::forward<Arguments>(arguments)...);
}

} // namespace corvel

#include "node_allocator.h"

#include <array>
#include <atomic>

#include "platform/invariant.h"
#include "platform/thread_annotations.h"

namespace corvel {

struct BlockPool::State {
    explicit State(std::size_t size) : blockSize(size) {}
    const std::size_t blockSize;
    Mutex mutex;
    void* freeBlocks GUARDED_BY(mutex) = nullptr; // each free block starts with the next one's address
    char* unused GUARDED_BY(mutex) = nullptr;     // the rest of the newest chunk
    char* unusedEnd GUARDED_BY(mutex) = nullptr;
};

namespace {

constexpr std::size_t kChunkBytes = std::size_t{64} * 1024;

} // namespace

BlockPool::BlockPool(std::size_t blockSize) : m_state(new State(blockSize)) {}

BlockPool& BlockPool::forSize(std::size_t blockSize) {
    CORVEL_ASSERT(blockSize >= sizeof(void*) && blockSize % kAlignment == 0 && blockSize <= kLargestBlock);
    // One slot per size; a pool, once made, is never freed (nodes may outlive every other
    // static object), so the slots only ever go from null to a pool.
    static std::array<std::atomic<BlockPool*>, kLargestBlock / kAlignment + 1> pools{};
    std::atomic<BlockPool*>& slot = pools[blockSize / kAlignment];
    BlockPool* pool = slot.load(std::memory_order_acquire);
    if (pool)
        return *pool;
    auto* made = new BlockPool(blockSize);
    if (slot.compare_exchange_strong(pool, made, std::memory_order_acq_rel))
        return *made;
    delete made->m_state;
    delete made;
    return *pool;
}

void* BlockPool::allocate() {
    State& state = *m_state;
    MutexLock guard(state.mutex);
    if (void* block = state.freeBlocks) {
        state.freeBlocks = *static_cast<void**>(block);
        return block;
    }
    if (static_cast<std::size_t>(state.unusedEnd - state.unused) < state.blockSize) {
        const std::size_t blocks = kChunkBytes / state.blockSize;
        state.unused = static_cast<char*>(::operator new(blocks* state.blockSize));
        state.unusedEnd = state.unused + blocks * state.blockSize;
    }
    void* block = state.unused;
    state.unused += state.blockSize;
    return block;
}

void BlockPool::deallocate(void* block) noexcept {
    State& state = *m_state;
    MutexLock guard(state.mutex);
    *static_cast<void**>(block) = state.freeBlocks;
    state.freeBlocks = block;
}

} // namespace corvel

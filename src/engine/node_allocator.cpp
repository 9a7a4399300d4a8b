#include "node_allocator.h"

#include <array>
#include <atomic>

#include "platform/invariant.h"

namespace corvel {

namespace {

constexpr std::size_t kChunkBytes = std::size_t{64} * 1024;

} // namespace

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
    delete made;
    return *pool;
}

void* BlockPool::allocate() {
    MutexLock guard(m_mutex);
    if (void* block = m_freeBlocks) {
        m_freeBlocks = *static_cast<void**>(block);
        return block;
    }
    if (static_cast<std::size_t>(m_unusedEnd - m_unused) < m_blockSize) {
        const std::size_t chunk = kChunkBytes / m_blockSize * m_blockSize;
        m_unused = static_cast<char*>(::operator new(chunk));
        m_unusedEnd = m_unused + chunk;
    }
    void* block = m_unused;
    m_unused += m_blockSize;
    return block;
}

void BlockPool::deallocate(void* block) noexcept {
    MutexLock guard(m_mutex);
    *static_cast<void**>(block) = m_freeBlocks;
    m_freeBlocks = block;
}

} // namespace corvel

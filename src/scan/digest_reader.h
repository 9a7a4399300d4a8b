#pragma once
// DigestReader: reads files' content signatures ahead of the comparison on a small
// pool of threads and keeps a digest of each (length and a 64-bit hash of the bytes).
// Signatures of at most kKeptSignatureBytes are kept with their digest, so that files
// sharing a digest can be confirmed byte for byte without reading them again; larger
// ones are read again for that.
//
// One thread (the consumer) queues files and takes their digests in queue order; the
// readers work through the queue at most kWindow files ahead of it, which bounds what
// is kept. The hand-over is lock-free: a reader claims the next file with one atomic
// step and publishes its digest with another, and the consumer reads files itself
// while the one it waits for is still being read.

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "platform/file_access.h"

namespace corvel {

class CVFile;

struct SignatureDigest {
    std::uint64_t length = 0;
    std::uint64_t hash = 0;
    // The signature compares from disk (a large text document): no hash was taken.
    bool streamed = false;
    // The signature's length bytes when it is small enough to keep, else null.
    std::unique_ptr<std::uint8_t[]> bytes;
    // What removing the file needs to know of it, read from the same opening; nothing
    // when the signature was read some other way (a bundle, a streamed signature).
    std::optional<ItemRemovalAccess> item;

    std::uint64_t keptLength() const { return bytes ? length : 0; }
};

inline constexpr std::uint64_t kKeptSignatureBytes = 64 * 1024;

// The digest of a file's signature, computed on the calling thread.
SignatureDigest digestOfFile(CVFile& file);

class DigestReader {
public:
    // How many queued files the readers may hold read and not yet taken.
    static constexpr std::size_t kWindow = 256;

    explicit DigestReader(unsigned threads);
    ~DigestReader();
    DigestReader(const DigestReader&) = delete;
    DigestReader& operator=(const DigestReader&) = delete;

    // All of the following are for the consumer thread only.

    // Queues files to be taken in this order. The files must stay alive until their
    // digests are taken or the reader is cleared.
    void enqueue(const std::vector<CVFile*>& files);
    // The digest of a file. Queued files are taken in queue order; the ones before
    // it that were never taken are dropped (their reads wasted). A file that is not
    // queued is read here, and then every queued file is dropped.
    SignatureDigest take(CVFile* file);
    // How many files are queued and not yet taken or dropped.
    std::size_t pending() const;
    // Drops every queued file, waiting for reads under way.
    void clear();

private:
    struct Slot {
        CVFile* file = nullptr;
        std::atomic<std::uint32_t> done{0};
        SignatureDigest digest;
    };
    Slot& slot(std::uint64_t index) { return m_slots[index % kWindow]; }
    void work();
    // Claims and reads the next file nobody has started; false when there is none.
    bool readNext();
    // Moves queued files into free slots of the window, for the readers to see.
    void fill();
    // Waits for a slot a reader has claimed, reading other files meanwhile.
    void waitFor(Slot& s);
    // Frees the slot at the head of the window.
    void release(Slot& s);

    std::unique_ptr<Slot[]> m_slots;
    // Files queued beyond the window, and the window's bounds: m_head is the next file
    // to take, m_claim the next for a reader to start, m_tail one past the last file
    // placed in a slot (m_head <= m_claim <= m_tail <= m_head + kWindow).
    std::deque<CVFile*> m_backlog;
    std::uint64_t m_head = 0;
    std::atomic<std::uint64_t> m_claim{0};
    std::atomic<std::uint64_t> m_tail{0};
    // Bumped whenever files are placed or the readers must stop; idle readers wait on it.
    std::atomic<std::uint32_t> m_wakeups{0};
    std::atomic<bool> m_stopping{false};
    std::vector<std::thread> m_threads;
};

} // namespace corvel

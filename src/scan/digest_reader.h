#pragma once
// DigestReader: reads files' content signatures ahead of the comparison on a small
// pool of threads and keeps a digest of each (length and a 64-bit hash of the bytes).
// Signatures of at most kKeptSignatureBytes are kept with their digest, so that files
// sharing a digest can be confirmed byte for byte without reading them again; larger
// ones are read again for that. The read-ahead window bounds what is kept.

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

namespace corvel {

class CVFile;

struct SignatureDigest {
    std::uint64_t length = 0;
    std::uint64_t hash = 0;
    // The signature compares from disk (a large text document): no hash was taken.
    bool streamed = false;
    // The signature's bytes when it is small enough to keep, else empty.
    std::vector<std::uint8_t> bytes;
};

inline constexpr std::uint64_t kKeptSignatureBytes = 64 * 1024;

// The digest of a file's signature, computed on the calling thread.
SignatureDigest digestOfFile(CVFile& file);

class DigestReader {
public:
    explicit DigestReader(unsigned threads);
    ~DigestReader();
    DigestReader(const DigestReader&) = delete;
    DigestReader& operator=(const DigestReader&) = delete;

    // Queues files; a file already queued or read is not queued again. The files must
    // stay alive until their digests are taken or the reader is cleared.
    void enqueue(const std::vector<CVFile*>& files);
    // The digest of a file, waiting for it (read here when nobody has started it).
    SignatureDigest take(CVFile* file);
    // How many files are queued or read and not yet taken.
    std::size_t pending() const;
    // Drops every queued file and forgets digests not taken.
    void clear();

private:
    void work();
    // Reads the oldest queued file that nobody has started; false when there is none.
    // Called with the lock held, which is released during the read.
    bool readNext(std::unique_lock<std::mutex>& lock);

    enum class State { Queued, Reading, Done };
    struct Entry {
        State state;
        SignatureDigest digest;
    };
    mutable std::mutex m_mutex;
    std::condition_variable m_workAvailable;
    std::condition_variable m_digestReady;
    std::deque<CVFile*> m_queue;
    std::unordered_map<CVFile*, Entry> m_entries;
    bool m_stopping = false;
    // The file the consumer waits for; readers wake it only for that one (or a clear).
    CVFile* m_awaited = nullptr;
    std::size_t m_doneNotTaken = 0;
    static constexpr std::size_t kWakeBatch = 32;
    bool m_clearing = false;
    std::vector<std::thread> m_threads;
};

} // namespace corvel

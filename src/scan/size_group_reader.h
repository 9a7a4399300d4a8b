#pragma once
// SizeGroupReader: sorts size groups' files into classes of equal signatures on a small
// pool of reader threads, ahead of the comparison. One thread (the consumer) queues
// the groups and takes their classes in queue order.
//
// A group's files are read in chunks, so the readers share a large group, and whoever
// reads a group's last chunk sorts the group into classes: the digests, and the bytes
// kept with them, stay on the reader threads and are freed there. The readers start a
// chunk only within kWindow files of the oldest group not taken (that group itself is
// always open), which bounds the digests held. The signature bytes kept for the byte
// comparison, of all groups together, stay within one KeptBytesBudget; signatures read
// beyond it are not kept, and are read again when their digest is shared.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "digest_reader.h"
#include "platform/thread_annotations.h"

namespace corvel {

class SizeGroupReader {
public:
    static constexpr std::size_t kWindow = 256;
    static constexpr std::size_t kChunk = 16;

    // keepGoing is asked between files, on any thread: false stops the reading and
    // sorting under way, which then answer what they have.
    // bytesRead, when given, counts the signature bytes the readers read (not owned).
    // keptBytesLimit bounds the signature bytes kept at any time.
    // unread, when given, gets the files that could not be opened or read (not owned;
    // it must outlive the reader).
    SizeGroupReader(unsigned threads, std::function<bool()> keepGoing,
                    std::atomic<std::uint64_t>* bytesRead = nullptr,
                    std::uint64_t keptBytesLimit = kKeptBytesBudget, UnreadFiles* unread = nullptr);
    ~SizeGroupReader();
    SizeGroupReader(const SizeGroupReader&) = delete;
    SizeGroupReader& operator=(const SizeGroupReader&) = delete;

    // All of the following are for the consumer thread only.

    // Queues one size group: its files and their places in the group. The files must
    // stay alive until the group is taken or the reader is cleared.
    void enqueue(std::vector<CVFile*> files, std::vector<std::size_t> positions) EXCLUDES(m_mutex);
    // The classes of the oldest queued group, waiting for them and reading other
    // chunks meanwhile. Nothing when no group is queued.
    EqualClasses take() EXCLUDES(m_mutex);
    // How many files are queued in groups not yet taken.
    std::size_t pendingFiles() const EXCLUDES(m_mutex);
    // Drops every queued group, waiting for the work under way.
    void clear() EXCLUDES(m_mutex);
    // The budget of kept signature bytes (its use and peak; any thread).
    const KeptBytesBudget& keptBytes() const { return m_keptBytes; }

private:
    struct Group;
    void work() EXCLUDES(m_mutex);
    // Starts the next chunk the window allows and works it, with the lock released
    // meanwhile; false when there is none.
    bool workOnce() REQUIRES(m_mutex);

    std::function<bool()> m_keepGoing;
    std::atomic<std::uint64_t>* m_bytesRead = nullptr;
    UnreadFiles* m_unread = nullptr;
    // Before the groups: the digests they hold give their bytes back to it.
    KeptBytesBudget m_keptBytes;
    mutable Mutex m_mutex;
    std::condition_variable m_workAvailable;
    std::condition_variable m_workDone;
    std::deque<std::unique_ptr<Group>> m_groups GUARDED_BY(m_mutex);
    std::size_t m_claimGroup GUARDED_BY(m_mutex) = 0;  // the first group in m_groups with a chunk to start
    std::size_t m_queuedFiles GUARDED_BY(m_mutex) = 0; // files ever queued: the next file's number
    std::size_t m_headFile GUARDED_BY(m_mutex) = 0;    // the number of the oldest group's first file
    std::size_t m_busy GUARDED_BY(m_mutex) = 0;        // chunks and sortings under way
    std::size_t m_idleReaders GUARDED_BY(m_mutex) = 0;
    bool m_consumerWaits GUARDED_BY(m_mutex) = false;
    bool m_stopping GUARDED_BY(m_mutex) = false;
    std::vector<std::thread> m_threads;
};

} // namespace corvel

#include "size_group_reader.h"

#include <algorithm>

namespace corvel {

struct SizeGroupReader::Group {
    std::vector<CVFile*> files;
    std::vector<std::size_t> positions;
    std::vector<SignatureDigest> digests;
    std::size_t firstFile = 0; // the number of its first file in the queue
    std::size_t chunks = 0;
    // Under the reader's lock:
    std::size_t started = 0;
    std::size_t finished = 0;
    bool done = false;
    EqualClasses classes;
};

SizeGroupReader::SizeGroupReader(unsigned threads, std::function<bool()> keepGoing,
                                 std::atomic<std::uint64_t>* bytesRead, std::uint64_t keptBytesLimit,
                                 UnreadFiles* unread)
    : m_keepGoing(std::move(keepGoing)), m_bytesRead(bytesRead), m_unread(unread),
      m_keptBytes(keptBytesLimit) {
    for (unsigned i = 0; i < threads; ++i)
        m_threads.emplace_back([this] { work(); });
}

SizeGroupReader::~SizeGroupReader() {
    clear();
    {
        MutexLock lock(m_mutex);
        m_stopping = true;
    }
    m_workAvailable.notify_all();
    for (auto& thread : m_threads)
        thread.join();
}

void SizeGroupReader::enqueue(std::vector<CVFile*> files, std::vector<std::size_t> positions) {
    auto group = std::make_unique<Group>();
    group->chunks = (files.size() + kChunk - 1) / kChunk;
    group->done = files.empty();
    group->digests.resize(files.size());
    group->files = std::move(files);
    group->positions = std::move(positions);
    MutexLock lock(m_mutex);
    group->firstFile = m_queuedFiles;
    m_queuedFiles += group->files.size();
    m_groups.push_back(std::move(group));
    if (m_idleReaders > 0)
        m_workAvailable.notify_all();
}

void SizeGroupReader::work() {
    MutexLock lock(m_mutex);
    while (!m_stopping) {
        if (workOnce())
            continue;
        ++m_idleReaders;
        lock.wait(m_workAvailable);
        --m_idleReaders;
    }
}

bool SizeGroupReader::workOnce() {
    while (m_claimGroup < m_groups.size() &&
           m_groups[m_claimGroup]->started == m_groups[m_claimGroup]->chunks)
        ++m_claimGroup;
    if (m_claimGroup == m_groups.size())
        return false;
    Group& group = *m_groups[m_claimGroup];
    const std::size_t from = group.started * kChunk;
    if (m_claimGroup > 0 && group.firstFile + from >= m_headFile + kWindow)
        return false;
    const std::size_t to = std::min(from + kChunk, group.files.size());
    ++group.started;
    ++m_busy;
    m_mutex.unlock();
    for (std::size_t n = from; n < to && m_keepGoing(); ++n) {
        SignatureDigest& digest = group.digests[n];
        digest = digestOfFile(*group.files[n], &m_keptBytes);
        if (digest.error != 0 && m_unread)
            m_unread->note(*group.files[n], digest.error);
        if (m_bytesRead)
            m_bytesRead->fetch_add(digest.length, std::memory_order_relaxed);
    }
    m_mutex.lock();
    const bool last = ++group.finished == group.chunks;
    if (last) {
        // Every chunk is in: the group is this thread's alone until it is marked done.
        m_mutex.unlock();
        EqualClasses classes =
            equalClasses(group.files, group.positions, group.digests, m_keepGoing, m_unread);
        std::vector<SignatureDigest>().swap(group.digests);
        m_mutex.lock();
        group.classes = std::move(classes);
        group.done = true;
    }
    --m_busy;
    if (m_consumerWaits)
        m_workDone.notify_one();
    return true;
}

EqualClasses SizeGroupReader::take() {
    MutexLock lock(m_mutex);
    if (m_groups.empty())
        return {};
    Group& head = *m_groups.front();
    while (!head.done) {
        if (workOnce())
            continue;
        m_consumerWaits = true;
        lock.wait(m_workDone);
        m_consumerWaits = false;
    }
    std::unique_ptr<Group> taken = std::move(m_groups.front());
    m_groups.pop_front();
    if (m_claimGroup > 0)
        --m_claimGroup;
    m_headFile = m_groups.empty() ? m_queuedFiles : m_groups.front()->firstFile;
    // The window moved on: readers that found it full may go on.
    if (m_idleReaders > 0)
        m_workAvailable.notify_all();
    lock.unlock();
    return std::move(taken->classes);
}

std::size_t SizeGroupReader::pendingFiles() const {
    MutexLock lock(m_mutex);
    return m_queuedFiles - m_headFile;
}

void SizeGroupReader::clear() {
    MutexLock lock(m_mutex);
    // No chunk starts any more; the ones under way finish into groups that are dropped.
    for (auto& group : m_groups)
        group->started = group->chunks;
    m_consumerWaits = true;
    while (m_busy != 0)
        lock.wait(m_workDone);
    m_consumerWaits = false;
    std::deque<std::unique_ptr<Group>> dropped;
    dropped.swap(m_groups);
    m_claimGroup = 0;
    m_headFile = m_queuedFiles;
    lock.unlock();
}

} // namespace corvel

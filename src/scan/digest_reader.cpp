#include "digest_reader.h"

#include <xxhash.h>

#include "engine/node.h"
#include "engine/node_type.h"
#include "engine/signature.h"

namespace corvel {

SignatureDigest digestOfFile(CVFile& file) {
    // Larger signatures go to a buffer each thread keeps and reuses.
    thread_local std::vector<std::uint8_t> scratch;
    SignatureDigest digest;
    // The type identifier matters only for documents (text is read whole); others skip it.
    const std::int32_t type = file.type();
    const std::string uti = type == kNodeTypeDocument ? file.uti() : std::string();
    const std::uint64_t expected = CVSignature::expectedLength(file.size(), type, uti);
    const bool keep = expected <= kKeptSignatureBytes;
    std::vector<std::uint8_t>& into = keep ? digest.bytes : scratch;
    digest.length = CVSignature::readInto(file.path(), file.size(), type, uti, into, digest.streamed);
    if (digest.length > 0 && !digest.streamed)
        digest.hash = XXH3_64bits(into.data(), digest.length);
    if (keep)
        digest.bytes.resize(digest.length);
    return digest;
}

DigestReader::DigestReader(unsigned threads) {
    for (unsigned i = 0; i < threads; ++i)
        m_threads.emplace_back([this] { work(); });
}

DigestReader::~DigestReader() {
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
        m_queue.clear();
    }
    m_workAvailable.notify_all();
    for (auto& thread : m_threads)
        thread.join();
}

void DigestReader::enqueue(const std::vector<CVFile*>& files) {
    {
        std::lock_guard lock(m_mutex);
        for (CVFile* file : files)
            if (m_entries.emplace(file, Entry{State::Queued, {}}).second)
                m_queue.push_back(file);
    }
    m_workAvailable.notify_all();
}

void DigestReader::work() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_workAvailable.wait(lock, [this] { return m_stopping || !m_queue.empty(); });
        if (m_stopping)
            return;
        readNext(lock);
    }
}

bool DigestReader::readNext(std::unique_lock<std::mutex>& lock) {
    while (!m_queue.empty()) {
        CVFile* file = m_queue.front();
        m_queue.pop_front();
        auto it = m_entries.find(file);
        if (it == m_entries.end() || it->second.state != State::Queued)
            continue;
        it->second.state = State::Reading;
        lock.unlock();
        SignatureDigest digest = digestOfFile(*file);
        lock.lock();
        if (auto done = m_entries.find(file); done != m_entries.end()) {
            done->second.digest = std::move(digest);
            done->second.state = State::Done;
            ++m_doneNotTaken;
        }
        // The consumer is woken when what it waits for is there and a batch more is
        // ready (or nothing more will come soon): one wake-up per file would cost more
        // than the reads.
        if (m_clearing || (m_awaited && (m_doneNotTaken >= kWakeBatch || m_queue.empty()) &&
                           m_entries.find(m_awaited)->second.state == State::Done))
            m_digestReady.notify_all();
        return true;
    }
    return false;
}

SignatureDigest DigestReader::take(CVFile* file) {
    std::unique_lock lock(m_mutex);
    auto it = m_entries.find(file);
    if (it == m_entries.end() || it->second.state == State::Queued) {
        // Nobody has started it: read it here rather than wait behind the queue.
        if (it != m_entries.end())
            m_entries.erase(it);
        lock.unlock();
        return digestOfFile(*file);
    }
    m_awaited = file;
    // While a reader has it, read the next queued file here rather than sleep: waking
    // for every file would cost more than the reads.
    for (;;) {
        auto e = m_entries.find(file);
        if (e == m_entries.end() || e->second.state == State::Done)
            break;
        if (!readNext(lock))
            m_digestReady.wait(lock);
    }
    m_awaited = nullptr;
    auto e = m_entries.find(file);
    if (e == m_entries.end()) {
        lock.unlock();
        return digestOfFile(*file);
    }
    SignatureDigest digest = std::move(e->second.digest);
    m_entries.erase(e);
    --m_doneNotTaken;
    return digest;
}

std::size_t DigestReader::pending() const {
    std::lock_guard lock(m_mutex);
    return m_entries.size();
}

void DigestReader::clear() {
    std::unique_lock lock(m_mutex);
    m_queue.clear();
    m_clearing = true;
    // Reads under way finish into entries that are then dropped.
    m_digestReady.wait(lock, [this] {
        for (const auto& [file, entry] : m_entries)
            if (entry.state == State::Reading)
                return false;
        return true;
    });
    m_entries.clear();
    m_doneNotTaken = 0;
    m_clearing = false;
}

} // namespace corvel

#include "digest_reader.h"

#include <xxhash.h>

#include "engine/node.h"
#include "engine/node_type.h"
#include "engine/signature.h"
#include "platform/file_io.h"

namespace corvel {

SignatureDigest digestOfFile(CVFile& file) {
    // Signatures too large to keep go to a buffer each thread keeps and reuses.
    thread_local std::vector<std::uint8_t> scratch;
    SignatureDigest digest;
    // The type identifier matters only for documents (text is read whole); others skip it.
    const std::int32_t type = file.type();
    const std::string uti = type == kNodeTypeDocument ? file.uti() : std::string();
    const std::uint64_t size = file.size();
    const CVSignature::Kind kind = CVSignature::getSignatureTypeWithUTI(uti, size, type);
    const std::uint64_t expected = CVSignature::expectedLength(size, type, uti);
    const std::string path = file.path();
    const std::uint8_t* read = nullptr;
    if (kind != CVSignature::Bundle && expected <= CVSignature::kMaxBufferedSignature) {
        // One opening gives the signature and what removing the file needs: no second
        // look-up of the path when the file joins a group.
        const ReadOnlyFile opened(path, false);
        if (!opened.valid())
            return digest;
        digest.item = itemRemovalAccess(opened.fd());
        std::uint8_t* into;
        if (expected <= kKeptSignatureBytes) {
            digest.bytes = std::make_unique_for_overwrite<std::uint8_t[]>(expected);
            into = digest.bytes.get();
        } else {
            if (scratch.size() < expected)
                scratch.resize(expected);
            into = scratch.data();
        }
        digest.length = CVSignature::readInto(opened.fd(), size, kind, into);
        read = into;
    } else {
        digest.length = CVSignature::readInto(path, size, type, uti, scratch, digest.streamed);
        read = scratch.data();
    }
    if (digest.length == 0)
        digest.bytes.reset();
    else if (!digest.streamed)
        digest.hash = XXH3_64bits(read, digest.length);
    return digest;
}

DigestReader::DigestReader(unsigned threads) : m_slots(std::make_unique<Slot[]>(kWindow)) {
    for (unsigned i = 0; i < threads; ++i)
        m_threads.emplace_back([this] { work(); });
}

DigestReader::~DigestReader() {
    clear();
    m_stopping.store(true, std::memory_order_release);
    m_wakeups.fetch_add(1, std::memory_order_release);
    m_wakeups.notify_all();
    for (auto& thread : m_threads)
        thread.join();
}

void DigestReader::enqueue(const std::vector<CVFile*>& files) {
    m_backlog.insert(m_backlog.end(), files.begin(), files.end());
    fill();
}

void DigestReader::fill() {
    const std::uint64_t before = m_tail.load(std::memory_order_relaxed);
    std::uint64_t tail = before;
    while (!m_backlog.empty() && tail - m_head < kWindow) {
        slot(tail++).file = m_backlog.front();
        m_backlog.pop_front();
    }
    if (tail == before)
        return;
    m_tail.store(tail, std::memory_order_release);
    m_wakeups.fetch_add(1, std::memory_order_release);
    m_wakeups.notify_all();
}

void DigestReader::work() {
    while (!m_stopping.load(std::memory_order_acquire)) {
        if (readNext())
            continue;
        // Sleep until files are placed: the count is read before looking again, so a
        // placing that comes in between changes it and the wait returns at once.
        const std::uint32_t seen = m_wakeups.load(std::memory_order_acquire);
        if (m_stopping.load(std::memory_order_acquire))
            return;
        if (m_claim.load(std::memory_order_acquire) < m_tail.load(std::memory_order_acquire))
            continue;
        m_wakeups.wait(seen, std::memory_order_acquire);
    }
}

bool DigestReader::readNext() {
    std::uint64_t next = m_claim.load(std::memory_order_acquire);
    do {
        if (next >= m_tail.load(std::memory_order_acquire))
            return false;
    } while (
        !m_claim.compare_exchange_weak(next, next + 1, std::memory_order_acq_rel, std::memory_order_acquire));
    // The slot stays this file's until its digest is taken, which needs the flag below.
    Slot& s = slot(next);
    s.digest = digestOfFile(*s.file);
    s.done.store(1, std::memory_order_release);
    s.done.notify_all();
    return true;
}

void DigestReader::waitFor(Slot& s) {
    while (s.done.load(std::memory_order_acquire) == 0)
        if (!readNext())
            s.done.wait(0, std::memory_order_acquire);
}

void DigestReader::release(Slot& s) {
    s.file = nullptr;
    s.digest = SignatureDigest();
    s.done.store(0, std::memory_order_relaxed);
    ++m_head;
    fill();
}

SignatureDigest DigestReader::take(CVFile* file) {
    while (m_head < m_tail.load(std::memory_order_relaxed)) {
        Slot& s = slot(m_head);
        const bool wanted = s.file == file;
        std::uint64_t head = m_head;
        if (m_claim.compare_exchange_strong(head, m_head + 1, std::memory_order_acq_rel)) {
            // Nobody has started it: read it here, or drop it unread.
            SignatureDigest digest = wanted ? digestOfFile(*file) : SignatureDigest();
            release(s);
            if (wanted)
                return digest;
            continue;
        }
        waitFor(s);
        SignatureDigest digest = std::move(s.digest);
        release(s);
        if (wanted)
            return digest;
    }
    return digestOfFile(*file);
}

std::size_t DigestReader::pending() const {
    return static_cast<std::size_t>(m_tail.load(std::memory_order_relaxed) - m_head) + m_backlog.size();
}

void DigestReader::clear() {
    m_backlog.clear();
    const std::uint64_t tail = m_tail.load(std::memory_order_relaxed);
    // Claims every file nobody has started, so that the readers start no more.
    std::uint64_t started = m_claim.load(std::memory_order_acquire);
    while (started < tail && !m_claim.compare_exchange_weak(started, tail, std::memory_order_acq_rel,
                                                            std::memory_order_acquire)) {
    }
    for (; m_head < tail; ++m_head) {
        Slot& s = slot(m_head);
        if (m_head < started)
            while (s.done.load(std::memory_order_acquire) == 0)
                s.done.wait(0, std::memory_order_acquire);
        s.file = nullptr;
        s.digest = SignatureDigest();
        s.done.store(0, std::memory_order_relaxed);
    }
}

} // namespace corvel

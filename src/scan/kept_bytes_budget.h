#pragma once
// KeptBytesBudget: one allowance for the signature bytes a scan keeps in memory to
// confirm equal digests byte for byte. A reader takes bytes from it before keeping a
// signature; when they do not fit, the signature is not kept and is read again from the
// file if its digest is shared. KeptBytes gives its bytes back when they are freed, on
// whichever thread frees them. Safe to use from any thread; it must outlive every
// KeptBytes taken from it.

#include <atomic>
#include <cstdint>
#include <memory>

namespace corvel {

// A scan's allowance: a few signatures of 64 KiB per reader for a large size group, and
// the whole window of small files read ahead, whatever the data.
inline constexpr std::uint64_t kKeptBytesBudget = std::uint64_t{4} << 20;

class KeptBytesBudget {
public:
    explicit KeptBytesBudget(std::uint64_t limit) : m_limit(limit) {}
    KeptBytesBudget(const KeptBytesBudget&) = delete;
    KeptBytesBudget& operator=(const KeptBytesBudget&) = delete;

    // Takes length bytes of the allowance; false, taking nothing, when they do not fit.
    bool reserve(std::uint64_t length);
    void release(std::uint64_t length) { m_used.fetch_sub(length, std::memory_order_relaxed); }

    std::uint64_t limit() const { return m_limit; }
    std::uint64_t used() const { return m_used.load(std::memory_order_relaxed); }
    // The most bytes taken at once so far.
    std::uint64_t peak() const { return m_peak.load(std::memory_order_relaxed); }

private:
    const std::uint64_t m_limit;
    std::atomic<std::uint64_t> m_used{0};
    std::atomic<std::uint64_t> m_peak{0};
};

// Frees kept bytes and gives them back to the budget they were taken from (none: they
// were taken from no budget).
struct KeptBytesRelease {
    KeptBytesBudget* budget = nullptr;
    std::uint64_t length = 0;
    void operator()(const std::uint8_t* bytes) const {
        delete[] bytes;
        if (budget)
            budget->release(length);
    }
};
using KeptBytes = std::unique_ptr<std::uint8_t[], KeptBytesRelease>;

// length bytes for a signature, taken from budget (no limit when null); null when they
// do not fit. The bytes are not initialised.
KeptBytes makeKeptBytes(std::uint64_t length, KeptBytesBudget* budget);

} // namespace corvel

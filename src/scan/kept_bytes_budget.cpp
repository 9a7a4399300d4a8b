#include "kept_bytes_budget.h"

namespace corvel {

bool KeptBytesBudget::reserve(std::uint64_t length) {
    std::uint64_t used = m_used.load(std::memory_order_relaxed);
    do {
        if (length > m_limit - used)
            return false;
    } while (!m_used.compare_exchange_weak(used, used + length, std::memory_order_relaxed));
    const std::uint64_t now = used + length;
    std::uint64_t peak = m_peak.load(std::memory_order_relaxed);
    while (now > peak && !m_peak.compare_exchange_weak(peak, now, std::memory_order_relaxed)) {
    }
    return true;
}

KeptBytes makeKeptBytes(std::uint64_t length, KeptBytesBudget* budget) {
    if (budget && !budget->reserve(length))
        return nullptr;
    return KeptBytes(new std::uint8_t[length], KeptBytesRelease{budget, length});
}

} // namespace corvel

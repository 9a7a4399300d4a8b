#pragma once
// How far the running scan has got, for a progress display: written by the scan's
// threads, read by any thread at any time (each figure on its own; they are not a
// consistent snapshot).

#include <atomic>
#include <cstdint>

namespace corvel {

struct ScanCounters {
    enum Stage : int { Idle = 0, Walking = 1, Comparing = 2 };

    std::atomic<int> stage{Idle};
    std::atomic<std::uint64_t> folders{0};   // met by the walk
    std::atomic<std::uint64_t> files{0};     // met by the walk
    std::atomic<std::uint64_t> sizes{0};     // sizes of more than one item the search looks at
    std::atomic<std::uint64_t> sizesDone{0}; // of those, searched
    std::atomic<std::uint64_t> bytesRead{0}; // signature bytes read to compare

    void reset() {
        stage = Idle;
        folders = 0;
        files = 0;
        sizes = 0;
        sizesDone = 0;
        bytesRead = 0;
    }
};

} // namespace corvel

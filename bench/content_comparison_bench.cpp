// Benchmarks of the byte-for-byte comparison, warm page cache: two equal files of a given
// size, and two equal trees of many small files. Bytes per second count the bytes read
// from both sides, as `cat A B > /dev/null` reads them.
//
// The scratch files go under $CORVEL_BENCH_DIR (default /tmp) and are removed at exit.
// With CORVEL_COMPARE_A and CORVEL_COMPARE_B set, BM_CompareGivenPaths compares those two
// paths (files or trees) instead, so the very same files can be timed with cat
// (bench/RESULTS.md).

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "engine/content_comparison.h"

namespace corvel {
namespace {

std::string scratchFolder() {
    const char* base = std::getenv("CORVEL_BENCH_DIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/corvel-compare-bench-XXXXXX";
    if (!::mkdtemp(pattern.data()))
        std::abort();
    return pattern;
}

void writeFile(const std::string& path, std::uint64_t size) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    std::vector<char> block(1 << 20);
    std::uint64_t x = 0x9E3779B97F4A7C15ULL;
    for (auto& byte : block) {
        x = x * 6364136223846793005ULL + 1442695040888963407ULL;
        byte = static_cast<char>(x >> 56);
    }
    for (std::uint64_t written = 0; written < size;) {
        const auto n = static_cast<std::size_t>(std::min<std::uint64_t>(block.size(), size - written));
        if (::write(fd, block.data(), n) != static_cast<ssize_t>(n))
            std::abort();
        written += n;
    }
    ::close(fd);
}

// Two equal files of the given size, removed with their folder when dropped.
class FilePair {
public:
    explicit FilePair(std::uint64_t size) : m_folder(scratchFolder()) {
        writeFile(a(), size);
        writeFile(b(), size);
    }
    ~FilePair() {
        ::unlink(a().c_str());
        ::unlink(b().c_str());
        ::rmdir(m_folder.c_str());
    }
    std::string a() const { return m_folder + "/a"; }
    std::string b() const { return m_folder + "/b"; }

private:
    std::string m_folder;
};

void BM_CompareEqualFiles(benchmark::State& state) {
    const auto size = static_cast<std::uint64_t>(state.range(0)) << 20;
    FilePair files(size);
    ContentComparer comparer;
    if (!comparer.compareFileContents(files.a(), files.b()).isEqual()) // also warms the cache
        state.SkipWithError("the copies differ");
    for (auto _ : state) {
        const ContentComparison result = comparer.compareFileContents(files.a(), files.b());
        benchmark::DoNotOptimize(result.bytesCompared);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size * 2));
}
BENCHMARK(BM_CompareEqualFiles)->Arg(64)->Arg(256)->Unit(benchmark::kMillisecond)->UseRealTime();

// Two trees of count files of size bytes each, in folders of 100 files.
class TreePair {
public:
    TreePair(int count, std::uint64_t size) : m_folder(scratchFolder()) {
        for (const char* side : {"/a", "/b"}) {
            made(m_folder + side, true);
            for (int i = 0; i < count; ++i) {
                const std::string sub = m_folder + side + "/" + std::to_string(i / 100);
                if (i % 100 == 0)
                    made(sub, true);
                made(sub + "/" + std::to_string(i), false, size);
            }
        }
    }
    ~TreePair() {
        for (auto it = m_made.rbegin(); it != m_made.rend(); ++it)
            ::remove(it->c_str());
        ::rmdir(m_folder.c_str());
    }
    std::string a() const { return m_folder + "/a"; }
    std::string b() const { return m_folder + "/b"; }

private:
    void made(const std::string& path, bool folder, std::uint64_t size = 0) {
        if (folder)
            ::mkdir(path.c_str(), 0700);
        else
            writeFile(path, size);
        m_made.push_back(path);
    }

    std::string m_folder;
    std::vector<std::string> m_made;
};

void BM_CompareEqualTrees(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    const auto size = static_cast<std::uint64_t>(state.range(1));
    TreePair trees(count, size);
    ContentComparer comparer;
    if (!comparer.compareTrees(trees.a(), trees.b()).isEqual())
        state.SkipWithError("the copies differ");
    for (auto _ : state) {
        const ContentComparison result = comparer.compareTrees(trees.a(), trees.b());
        benchmark::DoNotOptimize(result.bytesCompared);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * count * size * 2));
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * count * 2));
}
BENCHMARK(BM_CompareEqualTrees)
    ->Args({2000, 16384})
    ->Args({200, 1 << 20})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void BM_CompareGivenPaths(benchmark::State& state) {
    const char* a = std::getenv("CORVEL_COMPARE_A");
    const char* b = std::getenv("CORVEL_COMPARE_B");
    if (!a || !b) {
        state.SkipWithError("set CORVEL_COMPARE_A and CORVEL_COMPARE_B");
        for (auto _ : state) {
        }
        return;
    }
    ContentComparer comparer;
    const ContentComparison first = comparer.compareTrees(a, b);
    if (!first.isEqual())
        state.SkipWithError(first.message.c_str());
    std::uint64_t bytes = 0;
    for (auto _ : state)
        bytes += comparer.compareTrees(a, b).bytesCompared;
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes * 2));
}
BENCHMARK(BM_CompareGivenPaths)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
} // namespace corvel

// Micro-benchmarks of the content signatures: making one (reading the file, warm page
// cache) and comparing two, for the sampled kind and the whole-file kind.

#include <benchmark/benchmark.h>
#include <fstream>
#include <stdlib.h>
#include <string>
#include <unistd.h>

#include "engine/node_type.h"
#include "engine/signature.h"

namespace corvel {
namespace {

// A scratch file of the given size, removed at exit.
class ScratchFile {
public:
    explicit ScratchFile(std::uint64_t size, char fill = 'x') {
        char name[] = "/tmp/corvel-bench-XXXXXX";
        const int fd = ::mkstemp(name);
        ::close(fd);
        m_path = name;
        std::ofstream out(m_path, std::ios::binary);
        const std::string block(1 << 16, fill);
        for (std::uint64_t written = 0; written < size; written += block.size())
            out.write(block.data(),
                      static_cast<std::streamsize>(std::min<std::uint64_t>(block.size(), size - written)));
    }
    ~ScratchFile() { ::unlink(m_path.c_str()); }
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

void BM_SignatureCreateSampled(benchmark::State& state) {
    const auto size = static_cast<std::uint64_t>(state.range(0));
    ScratchFile file(size);
    for (auto _ : state) {
        CVSignature signature(file.path(), size, kNodeTypeOther, "public.data");
        benchmark::DoNotOptimize(signature.length());
    }
    state.SetLabel("19600 bytes in 33 reads");
}
BENCHMARK(BM_SignatureCreateSampled)->Arg(500000)->Arg(64 << 20);

void BM_SignatureCreateWhole(benchmark::State& state) {
    const auto size = static_cast<std::uint64_t>(state.range(0));
    ScratchFile file(size);
    for (auto _ : state) {
        CVSignature signature(file.path(), size, kNodeTypeOther, "public.data");
        benchmark::DoNotOptimize(signature.length());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
}
BENCHMARK(BM_SignatureCreateWhole)->Arg(4096)->Arg(100000)->Arg(499999);

void BM_SignatureCompare(benchmark::State& state) {
    const auto size = static_cast<std::uint64_t>(state.range(0));
    ScratchFile a(size);
    ScratchFile b(size);
    const CVSignature sa(a.path(), size, kNodeTypeOther, "public.data");
    const CVSignature sb(b.path(), size, kNodeTypeOther, "public.data");
    for (auto _ : state)
        benchmark::DoNotOptimize(sa.isEqualTo(sb));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * sa.length()));
}
BENCHMARK(BM_SignatureCompare)->Arg(499999)->Arg(500000);

void BM_SignatureCompareStreamedText(benchmark::State& state) {
    const std::uint64_t size = CVSignature::kMaxBufferedSignature + (4 << 20);
    ScratchFile a(size, 't');
    ScratchFile b(size, 't');
    const CVSignature sa(a.path(), size, kNodeTypeDocument, "public.plain-text");
    const CVSignature sb(b.path(), size, kNodeTypeDocument, "public.plain-text");
    for (auto _ : state)
        benchmark::DoNotOptimize(sa.isEqualTo(sb));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size * 2));
}
BENCHMARK(BM_SignatureCompareStreamedText);

} // namespace
} // namespace corvel

// Micro-benchmarks of the platform services that sit on hot paths: predicate
// evaluation (run per item by the selection filters), case-insensitive pattern search
// (run per path by the ignore list and the copy-name patterns) and NFD conversion.

#include <benchmark/benchmark.h>

#include "platform/predicate.h"
#include "platform/property_list.h"
#include "platform/text.h"

namespace corvel {
namespace {

void BM_PredicateEvaluate(benchmark::State& state) {
    const auto predicate = Predicate::parse(
        "(rootFolder.type == 11) && (info[SIZE] > 0) || path BEGINSWITH[c] '/home/ada/music/'", nullptr);
    const PropertyValue item(PropertyValue::Dictionary{{"path", "/home/ada/Music/Album/Track 01.mp3"},
                                                       {"info", PropertyValue::Dictionary{{"Rating", 60}}}});
    for (auto _ : state)
        benchmark::DoNotOptimize(predicate->evaluate(item));
}
BENCHMARK(BM_PredicateEvaluate);

void BM_RegexSearchCaseInsensitive(benchmark::State& state) {
    const auto re = RegularExpression::compile("[ ,-,_]+(copy|kopie|copia|co\xCC\x81pia)( \\d+)?$", nullptr);
    const std::string name = nfd("Summer holiday in the mountains - Cópia 2");
    for (auto _ : state)
        benchmark::DoNotOptimize(re->search(name));
}
BENCHMARK(BM_RegexSearchCaseInsensitive);

void BM_Nfd(benchmark::State& state) {
    const std::string name = "Fotos de verão/Cópia de praia.jpg";
    for (auto _ : state)
        benchmark::DoNotOptimize(nfd(name));
}
BENCHMARK(BM_Nfd);

void BM_PropertyListRead(benchmark::State& state) {
    PropertyValue::Dictionary tracks;
    for (int i = 0; i < state.range(0); ++i)
        tracks[std::to_string(i)] =
            PropertyValue::Dictionary{{"Name", "Track " + std::to_string(i)},
                                      {"Play Count", i},
                                      {"Location", "file:///home/ada/Music/" + std::to_string(i) + ".mp3"}};
    const std::string xml = propertyListData(PropertyValue(PropertyValue::Dictionary{{"Tracks", tracks}}),
                                             PropertyListFormat::XML);
    PropertyValue out;
    for (auto _ : state)
        benchmark::DoNotOptimize(readPropertyList(xml, out, nullptr));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * xml.size()));
}
BENCHMARK(BM_PropertyListRead)->Arg(1000)->Arg(10000);

} // namespace
} // namespace corvel

// The walk alone, on a folder given in CORVEL_WALK_ROOT (default /tmp/corpus, what
// bench/make_corpus writes): the tree walker's entries without nodes, and the whole
// hierarchy (walk, nodes, size groups) as a scan builds it. Warm cache after the first
// iteration; settings in a scratch folder removed at exit. Wall time, and the CPU time
// of every thread of the process.
//
//   CORVEL_WALK_ROOT=DIR build/bin/bench_walk --benchmark_repetitions=5

#include <atomic>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "engine/node_cache.h"
#include "engine/node_services.h"
#include "engine/node_type_generator.h"
#include "media/media_manager.h"
#include "platform/resources.h"
#include "platform/tracker.h"
#include "platform/user_defaults.h"
#include "scan/files_hierarchy.h"
#include "scan/tree_walker.h"
#include "settings/ignore_list.h"
#include "settings/preferences.h"

namespace corvel {
namespace {

std::string walkRoot() {
    const char* root = std::getenv("CORVEL_WALK_ROOT");
    return root != nullptr && *root != '\0' ? root : "/tmp/corpus";
}

// The services of a scan on a private settings file and the shipped ignore list.
struct Services {
    Services() {
        char name[] = "/tmp/corvel-walk-bench-XXXXXX";
        folder = ::mkdtemp(name);
    }
    ~Services() { std::filesystem::remove_all(folder); }
    Services(const Services&) = delete;
    Services& operator=(const Services&) = delete;

    std::string folder;
    UserDefaults defaults{folder + "/settings.plist"};
    NullTracker tracker;
    CVNodeTypeGenerator generator{defaults, folder, folder};
    CVPreferences preferences{defaults, tracker};
    CVIgnoreList ignoreList{defaults, resourcePath("IgnoreList.plist"),
                            CVIgnoreList::Environment{folder, folder, nullptr}, generator};
    CViMediaManager media{defaults};
    CVNodeCache cache;
    NodeServicesPtr nodes = std::make_shared<const CVNodeServices>(CVNodeServices{generator, media, cache});
};

void BM_TreeWalker(benchmark::State& state) {
    Services services;
    const std::string root = walkRoot();
    services.generator.prepareGenerator();
    services.ignoreList.updateExcludeList();
    services.ignoreList.addExcludePathWithRoot(root);
    std::atomic<bool> going{true};
    std::size_t entries = 0;
    for (auto _ : state) {
        TreeWalker walker(services.ignoreList, going, {TreeWalker::defaultThreads(), false});
        entries = 0;
        int error = 0;
        walker.walk(
            CVScanPath{root, false}, [&](const WalkEntry&) { ++entries; }, error);
    }
    state.counters["entries"] = static_cast<double>(entries);
}
BENCHMARK(BM_TreeWalker)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime()->MinTime(2.0);

void BM_FilesHierarchy(benchmark::State& state) {
    Services services;
    const std::string root = walkRoot();
    std::size_t groups = 0;
    for (auto _ : state) {
        CVFilesHierarchy hierarchy({CVScanPath{root, false}},
                                   {services.ignoreList, services.preferences, services.nodes});
        hierarchy.rescan();
        groups = hierarchy.filesGroupedBySize().size();
    }
    state.counters["sizes"] = static_cast<double>(groups);
}
BENCHMARK(BM_FilesHierarchy)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->MinTime(2.0);

} // namespace
} // namespace corvel

#include "group_verifier.h"

#include <thread>

#include "engine/content_comparison.h"

namespace corvel {

namespace {

// The members' places sorted into classes of equal content; members that cannot be
// compared are in none.
struct Classes {
    std::vector<std::vector<std::size_t>> members;
    std::vector<std::string> problems;
    std::uint64_t bytes = 0;
    bool stopped = false;
};

Classes classify(const CVGroup& group, ContentComparer& comparer) {
    Classes result;
    const auto files = group.files();
    std::vector<std::string> paths;
    paths.reserve(files.size());
    for (const auto& file : files)
        paths.push_back(file->path());
    for (std::size_t i = 0; i < files.size(); ++i) {
        bool placed = false;
        bool unknown = false;
        for (auto& equal : result.members) {
            const ContentComparison comparison = comparer.compareTrees(paths[i], paths[equal.front()]);
            result.bytes += comparison.bytesCompared;
            if (comparison.outcome == ContentComparison::Stopped) {
                result.stopped = true;
                return result;
            }
            if (comparison.isEqual()) {
                equal.push_back(i);
                placed = true;
                break;
            }
            if (comparison.outcome == ContentComparison::CannotCompare) {
                result.problems.push_back(comparison.message);
                unknown = true;
                break;
            }
        }
        if (!placed && !unknown)
            result.members.push_back({i});
    }
    return result;
}

} // namespace

GroupVerification verifySampledGroups(const std::vector<GroupPtr>& groups, unsigned threads,
                                      const std::atomic<bool>* stop) {
    std::vector<std::size_t> sampled;
    for (std::size_t g = 0; g < groups.size(); ++g)
        if (!groups[g]->isVerified())
            sampled.push_back(g);
    std::vector<Classes> classes(groups.size());
    std::atomic<std::size_t> next{0};
    auto work = [&] {
        ContentComparer comparer([stop] { return stop && stop->load(); });
        for (std::size_t k; (k = next.fetch_add(1)) < sampled.size();)
            classes[sampled[k]] = classify(*groups[sampled[k]], comparer);
    };
    std::vector<std::thread> workers;
    const unsigned count = std::max(1u, std::min<unsigned>(threads, static_cast<unsigned>(sampled.size())));
    for (unsigned t = 1; t < count; ++t)
        workers.emplace_back(work);
    work();
    for (auto& worker : workers)
        worker.join();

    GroupVerification verification;
    std::size_t k = 0;
    for (std::size_t g = 0; g < groups.size(); ++g) {
        if (k >= sampled.size() || sampled[k] != g) {
            verification.groups.push_back(groups[g]);
            continue;
        }
        ++k;
        const Classes& found = classes[g];
        verification.bytesCompared += found.bytes;
        verification.problems.insert(verification.problems.end(), found.problems.begin(),
                                     found.problems.end());
        if (found.stopped)
            continue;
        const auto files = groups[g]->files();
        if (found.members.size() == 1 && found.members.front().size() == files.size()) {
            groups[g]->setContentVerified(true);
            verification.groups.push_back(groups[g]);
            ++verification.confirmed;
            continue;
        }
        // Some copies differ: each class of two or more equal ones is a group of its own.
        bool anyKept = false;
        for (const auto& equal : found.members) {
            if (equal.size() < 2)
                continue;
            auto group = CVGroup::initWithCVFile(files[equal.front()]);
            for (std::size_t m = 1; m < equal.size(); ++m)
                group->addFile(files[equal[m]]);
            group->setContentVerified(true);
            if (group->hardLinkCheck())
                continue;
            verification.groups.push_back(group);
            anyKept = true;
        }
        if (anyKept)
            ++verification.split;
        else
            ++verification.dropped;
    }
    return verification;
}

} // namespace corvel

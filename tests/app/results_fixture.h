#pragma once
// The results view and the collector made by the factory over one results collection,
// wired as the scan window wires them (the selecting controller's display passes the
// changes on to the collector), with groups of real copies in a scratch tree.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "removal/removal_harness.h"
#include "results/duplicates_controller.h"
#include "results_fakes.h"

namespace corvel::test {

// The scan window's part: the selection changes reach the collector.
class CollectorDisplay final : public CVSelectingControllerDisplay {
public:
    void shouldIncSelectedSize(std::int64_t size, std::int64_t count) override {
        shouldIncSelectedSize(size, count, "", "");
    }
    void shouldIncSelectedSize(std::int64_t size, std::int64_t count, const std::string& warning,
                               const std::string& details) override {
        if (collector)
            collector->shouldIncSelectedSize(size, count, warning, details);
    }
    CollectorRole* collector = nullptr;
};

struct ResultsFixture : ResultsHarness {
    std::shared_ptr<CVDuplicatesController> results = std::make_shared<CVDuplicatesController>();
    CVResultsRolesFactory factory{services(), faces};
    CollectorDisplay display;
    std::unique_ptr<ResultsViewRole> viewRole;
    std::unique_ptr<CVSelectingController> selecting;
    std::unique_ptr<CollectorRole> collectorRole;

    ~ResultsFixture() {
        collectorRole.reset();
        selecting.reset();
        viewRole.reset();
        MainQueue::shared().drain();
    }

    // Makes both controllers as the scan window does when it shows the results.
    void open() {
        factory.setHost(&host);
        factory.setRemovalPacing(false);
        viewRole = factory.makeResultsView(results);
        selecting = std::make_unique<CVSelectingController>(viewRole.get(), scan.defaults);
        selecting->setDisplay(&display);
        viewRole->setSelectingController(selecting.get());
        collectorRole = factory.makeCollector(results, *viewRole);
        viewRole->setQlDataSource(collectorRole.get());
        display.collector = collectorRole.get();
        MainQueue::shared().drain();
    }
    CVResultsViewController& view() { return *dynamic_cast<CVResultsViewController*>(viewRole.get()); }
    CVCollectorViewController& collector() {
        return *dynamic_cast<CVCollectorViewController*>(collectorRole.get());
    }
    FakeResultsFace& face() { return *faces.results; }
    FakeCollectorFace& collectorFace() { return *faces.collector; }

    // A group of real copies named name, one in each folder under files/, of the node
    // type, with the content; mtimes (seconds), when given, replace the files' own.
    std::shared_ptr<CVGroup> group(const std::string& name, NodeType type,
                                   const std::vector<std::string>& folders, const std::string& content,
                                   const std::vector<std::int64_t>& mtimes = {}) {
        std::shared_ptr<CVGroup> g;
        for (std::size_t i = 0; i < folders.size(); ++i) {
            const std::string path = tree.file("files/" + folders[i] + "/" + name, content);
            auto node = scannedNode(path);
            node->setType(type);
            if (i < mtimes.size())
                node->setStatMTime(mtimes[i]);
            if (!g)
                g = CVGroup::initWithCVFile(node);
            else
                g->addFile(node);
        }
        results->addGroup(g);
        return g;
    }
    // A group of two copies of a small file, for tests that only need groups.
    std::shared_ptr<CVGroup> pair(const std::string& name, NodeType type, std::size_t size = 100) {
        return group(name, type, {"a", "b"}, std::string(size, static_cast<char>('a' + (size % 26))));
    }

    // The groups by their first members' file names.
    static std::vector<std::string> names(const std::vector<std::shared_ptr<CVGroup>>& groups) {
        std::vector<std::string> out;
        for (const auto& g : groups)
            out.push_back(g->files().front()->name());
        return out;
    }
    static std::vector<bool> marks(const std::shared_ptr<CVGroup>& g) {
        std::vector<bool> out;
        for (const auto& f : g->files())
            out.push_back(f->needToRemove());
        return out;
    }
    std::size_t rowOfCategory(std::int32_t id) {
        const auto& c = face().categories;
        for (std::size_t i = 0; i < c.size(); ++i)
            if (c[i]->groupID() == id)
                return i;
        ADD_FAILURE() << "no category " << id;
        return 0;
    }
};

} // namespace corvel::test

#pragma once
// CVResultsRolesFactory: makes the results view and collector controllers the scan
// window asks for, each with a face from ResultsFaces. The collector's host (the scan
// window) is set once it exists. Main thread.

#include <memory>

#include "collector_view.h"
#include "results_roles.h"
#include "results_services.h"
#include "results_view.h"

namespace corvel {

// Makes the faces the controllers draw on.
class ResultsFaces {
public:
    virtual ~ResultsFaces() = default;
    virtual std::unique_ptr<ResultsView> makeResultsFace() = 0;
    virtual std::unique_ptr<CollectorView> makeCollectorFace() = 0;
};

class CVResultsRolesFactory final : public ResultsRolesFactory {
public:
    CVResultsRolesFactory(ResultsServices services, ResultsFaces& faces)
        : m_services(services), m_faces(faces) {}

    // Not owned; must outlive the collectors made after it is set.
    void setHost(CollectorHost* host) { m_host = host; }
    // The removal pass's tick pacing for the collectors made from now on.
    void setRemovalPacing(bool paced) { m_removalPacing = paced; }

    std::unique_ptr<ResultsViewRole>
    makeResultsView(const std::shared_ptr<CVDuplicatesController>& duplicates) override;
    // The collector of a results view this factory made; with another results view it
    // cannot unmark files.
    std::unique_ptr<CollectorRole> makeCollector(const std::shared_ptr<CVDuplicatesController>& duplicates,
                                                 ResultsViewRole& resultsView) override;

private:
    ResultsServices m_services;
    ResultsFaces& m_faces;
    CollectorHost* m_host = nullptr;
    bool m_removalPacing = true;
};

} // namespace corvel

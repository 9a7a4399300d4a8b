#include "results_roles_factory.h"

#include "collector_view_controller.h"
#include "results_view_controller.h"

namespace corvel {

std::unique_ptr<ResultsViewRole>
CVResultsRolesFactory::makeResultsView(const std::shared_ptr<CVDuplicatesController>& duplicates) {
    return std::make_unique<CVResultsViewController>(duplicates, m_faces.makeResultsFace(), m_services);
}

std::unique_ptr<CollectorRole>
CVResultsRolesFactory::makeCollector(const std::shared_ptr<CVDuplicatesController>& duplicates,
                                     ResultsViewRole& resultsView) {
    auto collector = std::make_unique<CVCollectorViewController>(
        duplicates, dynamic_cast<CVResultsViewController*>(&resultsView), m_faces.makeCollectorFace(),
        m_services, m_host);
    collector->setRemovalPacing(m_removalPacing);
    return collector;
}

} // namespace corvel

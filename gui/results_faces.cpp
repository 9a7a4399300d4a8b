#include "results_faces.h"

#include "collector_panel.h"
#include "results_page.h"

namespace corvel::gui {

std::unique_ptr<ResultsView> ResultsPageFaces::makeResultsFace() {
    auto* page = new ResultsPage;
    m_lastPage = page;
    return std::make_unique<ResultsFace>(page);
}

std::unique_ptr<CollectorView> ResultsPageFaces::makeCollectorFace() {
    // Without a results page first, the collector draws on a panel of its own.
    CollectorPanel* panel = m_lastPage ? m_lastPage->collectorPanel() : nullptr;
    m_lastPage = nullptr;
    return std::make_unique<CollectorFace>(panel);
}

} // namespace corvel::gui

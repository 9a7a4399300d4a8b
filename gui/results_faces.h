#pragma once
// ResultsPageFaces: the faces the results and collector controllers draw on. Each
// results face comes with a fresh ResultsPage; the collector face made next draws on
// that page's collector panel (the scan window makes the results view, then its
// collector). GUI thread.

#include "app/results_roles_factory.h"

namespace corvel::gui {

class ResultsPage;

class ResultsPageFaces final : public ResultsFaces {
public:
    std::unique_ptr<ResultsView> makeResultsFace() override;
    std::unique_ptr<CollectorView> makeCollectorFace() override;

private:
    ResultsPage* m_lastPage = nullptr;
};

} // namespace corvel::gui

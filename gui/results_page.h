#pragma once
// ResultsPage: the results view of the main window. On the left the categories with
// their numbers of groups and sizes; on the right the groups table (GroupsModel: its
// header sorts by the six keys through the controller), the commands that select
// copies, and below the files of the selected group with their check boxes, beside a
// preview pane. A search field filters the groups by name or path; the bottom row goes
// back to the scan or opens the collector, which covers the browser while it is open.
// Every command goes to the controllers; the page keeps no results of its own.
//
// ResultsFace is the page as the controller's ResultsView. The face owns the page: the
// page is shown in the main window's stack and goes (deleteLater) with the face, after
// it was unbound from the controllers. GUI thread.

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPointer>
#include <QPushButton>
#include <QStackedWidget>
#include <QTableView>
#include <QTimer>
#include <QToolButton>
#include <functional>
#include <memory>

#include "app/results_view.h"
#include "results_models.h"

namespace corvel {
class CVCollectorViewController;
class CVResultsViewController;
class CVScanWindowController;
} // namespace corvel

namespace corvel::gui {

class CollectorPanel;
class PreviewPane;

class ResultsPage final : public QWidget {
public:
    explicit ResultsPage(QWidget* parent = nullptr);

    // The controllers the page's commands go to; null unbinds (then the page does nothing).
    void bind(CVResultsViewController* results, CVScanWindowController* window,
              CVCollectorViewController* collector);
    CVResultsViewController* results() const { return m_results; }

    // What the face was told.
    void showCategories(const std::vector<std::shared_ptr<CVMetaGroup>>& categories,
                        std::optional<std::size_t> selectedRow);
    void showGroups(const std::vector<std::shared_ptr<CVGroup>>& groups,
                    const std::vector<std::size_t>& rows);
    void showFiles(const std::vector<std::shared_ptr<CVFile>>& files, const std::vector<std::size_t>& rows);
    void refreshRows();
    void setFolderName(const std::string& name);
    void setSortIndicator(std::int64_t type, bool ascending);
    void focusTable(ResultsTable table);
    // The collector's count and size line, and whether there is anything to review.
    void setAmountLine(const QString& line);
    void clearSearch();
    void focusSearch();

    // The collector covers the browser, or the browser shows again.
    void showCollector(bool shown);
    bool collectorShown() const;

    QListWidget* categoriesList() const { return m_categories; }
    QTableView* groupsTable() const { return m_groupsTable; }
    QTableView* filesTable() const { return m_filesTable; }
    GroupsModel* groupsModel() const { return m_groupsModel; }
    FilesModel* filesModel() const { return m_filesModel; }
    QLineEdit* searchField() const { return m_search; }
    QComboBox* searchScope() const { return m_searchScope; }
    QPushButton* autoSelectButton() const { return m_autoSelect; }
    QPushButton* selectMenuButton() const { return m_selectMenu; }
    QPushButton* groupsMenuButton() const { return m_groupsMenu; }
    QPushButton* reviewButton() const { return m_review; }
    QPushButton* backButton() const { return m_back; }
    QLabel* amountLabel() const { return m_amount; }
    PreviewPane* previewPane() const { return m_preview; }
    CollectorPanel* collectorPanel() const { return m_collector; }

    // The context menu of a file (open, open with, reveal, preview, exclude).
    QMenu* makeFileMenu(const std::shared_ptr<CVFile>& file, QWidget* parent);

private:
    void groupSelectionChanged();
    void fileSelectionChanged();
    void headerClicked(int column);
    void searchChanged();
    void updateReviewButton();
    QString categoryLine(const CVMetaGroup& category) const;

    CVResultsViewController* m_results = nullptr;
    CVScanWindowController* m_window = nullptr;
    CVCollectorViewController* m_collectorController = nullptr;
    bool m_updating = false;
    std::vector<std::shared_ptr<CVMetaGroup>> m_shownCategories;

    QStackedWidget* m_stack;
    QLabel* m_folderName;
    QComboBox* m_searchScope;
    QLineEdit* m_search;
    QTimer m_searchTimer;
    QListWidget* m_categories;
    GroupsModel* m_groupsModel;
    QTableView* m_groupsTable;
    FilesModel* m_filesModel;
    QTableView* m_filesTable;
    PreviewPane* m_preview;
    QPushButton* m_autoSelect;
    QPushButton* m_selectMenu;
    QPushButton* m_groupsMenu;
    QPushButton* m_back;
    QLabel* m_amount;
    QPushButton* m_review;
    CollectorPanel* m_collector;
};

class ResultsFace final : public ResultsView {
public:
    explicit ResultsFace(ResultsPage* page) : m_page(page) {}
    ~ResultsFace() override;

    ResultsPage* page() const { return m_page; }

    void showCategories(const std::vector<std::shared_ptr<CVMetaGroup>>& categories,
                        std::optional<std::size_t> selectedRow) override;
    void showGroups(const std::vector<std::shared_ptr<CVGroup>>& groups,
                    const std::vector<std::size_t>& selectedRows) override;
    void showFiles(const std::vector<std::shared_ptr<CVFile>>& files,
                   const std::vector<std::size_t>& selectedRows) override;
    void refreshRows() override;
    void setFolderName(const std::string& name) override;
    void setDiagramShown(bool /*shown*/, const std::string& /*toolTip*/) override {}
    void setSortButton(std::int64_t type, bool ascending) override;
    void makeFirstResponder(ResultsTable table) override;
    SuppressibleAlertReply runSuppressibleAlert(const std::string& message, const std::string& informative,
                                                const std::string& defaultButton,
                                                const std::string& alternateButton,
                                                const std::string& suppressionTitle) override;
    void showOpenPanelSheet(const std::string& prompt,
                            std::function<void(std::optional<std::string>)> completion) override;
    void showSavePanel(std::function<void(std::optional<std::string>)> completion) override;
    void showError(const std::string& message) override;

private:
    QPointer<ResultsPage> m_page;
};

} // namespace corvel::gui

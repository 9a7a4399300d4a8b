#pragma once
// CollectorPanel: the copies marked for removal, covering the results browser while it
// is open. Three pages: the list (the copies by group, each with a Keep link, the count
// and size line, Put All Back, Back to Results and Remove, which turns into Stop while
// the removal pass runs, with its progress), the success view (the size freed, the
// total, level and rank; New Scan, Back to Results, Back to Scan) and the error list
// (each file the pass could not remove with the reason, and the size left).
//
// CollectorModel is the list as a tree over the controller's own list of groups.
// CollectorFace is the panel as the controller's CollectorView. The pass runs on its
// own thread; everything here is called on the GUI thread.

#include <QAbstractItemModel>
#include <QLabel>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QTableWidget>
#include <QTreeView>
#include <map>

#include "app/collector_view.h"

namespace corvel {
class CVCollectorViewController;
}

namespace corvel::gui {

class ResultsPage;

class CollectorModel final : public QAbstractItemModel {
public:
    enum Column { Name, Folder, Size, Keep, ColumnCount };

    explicit CollectorModel(QObject* parent = nullptr) : QAbstractItemModel(parent) {}

    void setList(const std::vector<CollectorListGroup>* list);
    // The file of a file row; null for a group row.
    std::shared_ptr<CVFile> fileAt(const QModelIndex& index) const;

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    const std::vector<CollectorListGroup>* m_list = nullptr;
};

class CollectorPanel final : public QWidget {
public:
    explicit CollectorPanel(QWidget* parent = nullptr);

    void bind(CVCollectorViewController* controller, ResultsPage* page);
    ResultsPage* resultsPage() const { return m_page; }

    // What the face was told.
    void showList(const std::vector<CollectorListGroup>& groups);
    void setAmountLine(const QString& line);
    void setRemovalMode(bool toTrash);
    void setRemoveButton(const QString& title, const QString& toolTip);
    void setButtonsEnabled(bool enabled);
    void startProgress();
    void advanceProgress(std::uint64_t handled, std::uint64_t total);
    void endProgress();
    void fileFailed(const CVFile& file, const std::string& reason);
    void showSummary(const CleanupSummary& summary);
    void showFailedFiles(const std::vector<std::shared_ptr<CVFile>>& files);
    void showSuccessPage();
    void showErrorPage(const QString& undeletedSizeText);
    void showListPage();
    void showSelectionMessage(const QString& warning, const QString& details);

    enum class Page { List, Success, Errors };
    Page page() const;

    QTreeView* list() const { return m_list; }
    CollectorModel* model() const { return m_model; }
    QLabel* amountLabel() const { return m_amount; }
    QPushButton* removeButton() const { return m_remove; }
    QPushButton* keepButton() const { return m_keep; }
    QPushButton* putBackButton() const { return m_putBack; }
    QPushButton* closeButton() const { return m_close; }
    QProgressBar* progress() const { return m_progress; }
    QLabel* freedLabel() const { return m_freed; }
    QLabel* levelLabel() const { return m_level; }
    QLabel* totalLabel() const { return m_total; }
    QPushButton* newScanButton() const { return m_newScan; }
    QPushButton* doneButton() const { return m_done; }
    QPushButton* backToScanButton() const { return m_backToScan; }
    QTableWidget* errorTable() const { return m_errors; }
    QLabel* undeletedLabel() const { return m_undeleted; }

    // Keeps the files of the selected rows (their marks are taken away).
    void keepSelected();

private:
    QWidget* makeListPage();
    QWidget* makeSuccessPage();
    QWidget* makeErrorPage();

    CVCollectorViewController* m_controller = nullptr;
    ResultsPage* m_page = nullptr;
    std::map<std::string, QString> m_reasons;

    QStackedWidget* m_pages;
    CollectorModel* m_model;
    QTreeView* m_list;
    QLabel* m_amount;
    QLabel* m_mode;
    QLabel* m_message;
    QPushButton* m_keep;
    QPushButton* m_putBack;
    QPushButton* m_close;
    QPushButton* m_remove;
    QProgressBar* m_progress;
    QLabel* m_freed;
    QLabel* m_total;
    QLabel* m_level;
    QPushButton* m_newScan;
    QPushButton* m_done;
    QPushButton* m_backToScan;
    QTableWidget* m_errors;
    QLabel* m_undeleted;
    QPushButton* m_errorsDone;
    QPushButton* m_errorsNewScan;
};

class CollectorFace final : public CollectorView {
public:
    explicit CollectorFace(CollectorPanel* panel) : m_panel(panel) {}

    CollectorPanel* panel() const { return m_panel; }

    void showList(const std::vector<CollectorListGroup>& groups) override;
    void deselectAllRows() override;
    void setAmountLine(const std::string& text) override;
    void setRemovalMode(bool toTrash) override;
    void setRemoveButtonEnabled(bool enabled) override;
    void slideIn(std::function<void()> done) override;
    void slideOut(std::function<void()> done) override;
    void setInformationPanelHidden(bool /*hidden*/) override {}
    void setListFirstResponder(bool first) override;
    AlertChoice runModalAlert(const std::string& message, const std::string& informative,
                              const std::string& defaultButton, const std::string& alternateButton) override;
    void showCleanupSummary(const CleanupSummary& summary) override;
    void showFailedFiles(const std::vector<std::shared_ptr<CVFile>>& files) override;
    void showSelectionMessage(const std::string& warning, const std::string& details) override;

    // CVRemovalView.
    void setRemoveButton(const std::string& title, const std::string& toolTip) override;
    void setButtonsEnabled(bool enabled) override;
    void startShredderAnimation() override;
    void advanceShredderAnimation(std::uint64_t handled, std::uint64_t total) override;
    void endShredderAnimations() override;
    void fileHandled(const CVFile& file, bool ok, const std::string& reason) override;
    void showSuccessView() override;
    void showErrorList(const std::string& undeletedSizeText) override;

private:
    QPointer<CollectorPanel> m_panel;
};

} // namespace corvel::gui

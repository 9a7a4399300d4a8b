#include "results_page.h"

#include <QCheckBox>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QMenu>
#include <QMessageBox>
#include <QShortcut>
#include <QSplitter>
#include <QVBoxLayout>

#include "app/collector_view_controller.h"
#include "app/groups_sorting.h"
#include "app/results_view_controller.h"
#include "app/scan_window_controller.h"
#include "collector_panel.h"
#include "engine/file_sizer.h"
#include "gui_text.h"
#include "platform/text_format.h"
#include "preview_pane.h"
#include "size_diagram.h"

namespace corvel::gui {

namespace {

constexpr int kSearchDelayMs = 200;

// Escape in a search field clears it, as search fields do; an empty field lets it through.
class ClearOnEscape final : public QObject {
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        auto* field = qobject_cast<QLineEdit*>(watched);
        if (!field || event->type() != QEvent::KeyPress ||
            static_cast<QKeyEvent*>(event)->key() != Qt::Key_Escape || field->text().isEmpty())
            return false;
        field->clear();
        return true;
    }
};

QTableView* makeTable(QAbstractItemModel* model, QWidget* parent, const char* name) {
    auto* table = new QTableView(parent);
    table->setObjectName(name);
    table->setModel(model);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setAlternatingRowColors(true);
    table->setShowGrid(false);
    table->setWordWrap(false);
    table->setTextElideMode(Qt::ElideMiddle);
    table->verticalHeader()->hide();
    // Every row the same height: the view never measures 50,000 rows.
    table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    table->verticalHeader()->setDefaultSectionSize(table->fontMetrics().height() + 8);
    table->horizontalHeader()->setHighlightSections(false);
    table->setContextMenuPolicy(Qt::CustomContextMenu);
    // Tab goes on to the next control; the arrows move between rows.
    table->setTabKeyNavigation(false);
    return table;
}

std::vector<std::size_t> selectedRows(QTableView* table) {
    std::vector<std::size_t> rows;
    for (const QModelIndex& index : table->selectionModel()->selectedRows())
        rows.push_back(static_cast<std::size_t>(index.row()));
    std::sort(rows.begin(), rows.end());
    return rows;
}

void selectRows(QTableView* table, const std::vector<std::size_t>& rows) {
    QItemSelection selection;
    const int last = table->model()->columnCount() - 1;
    for (const std::size_t row : rows) {
        const int r = static_cast<int>(row);
        selection.select(table->model()->index(r, 0), table->model()->index(r, last));
    }
    table->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
    if (!rows.empty())
        table->scrollTo(table->model()->index(static_cast<int>(rows.front()), 0));
}

} // namespace

ResultsPage::ResultsPage(QWidget* parent) : QWidget(parent) {
    setObjectName("resultsPage");
    m_stack = new QStackedWidget(this);
    auto* browser = new QWidget(m_stack);

    // Top row: the folders scanned and the search.
    m_folderName = new QLabel(browser);
    m_folderName->setObjectName("folderName");
    QFont bold = m_folderName->font();
    bold.setBold(true);
    bold.setPointSizeF(bold.pointSizeF() * 1.2);
    m_folderName->setFont(bold);
    m_folderName->setTextFormat(Qt::PlainText);
    m_searchScope = new QComboBox(browser);
    m_searchScope->setObjectName("searchScope");
    m_searchScope->addItem(windowText("Results_SearchNames"));
    m_searchScope->addItem(windowText("Results_SearchPaths"));
    m_searchScope->setAccessibleName(windowText("Results_SearchScopeAccessibleName"));
    m_search = new QLineEdit(browser);
    m_search->setObjectName("searchField");
    m_search->setPlaceholderText(windowText("Results_SearchPlaceholder"));
    m_search->setAccessibleName(windowText("Results_SearchPlaceholder"));
    m_search->setClearButtonEnabled(true);
    m_search->setMinimumWidth(260);
    m_searchTimer.setSingleShot(true);
    m_searchTimer.setInterval(kSearchDelayMs);
    connect(&m_searchTimer, &QTimer::timeout, this, &ResultsPage::searchChanged);
    connect(m_search, &QLineEdit::textChanged, this, [this] { m_searchTimer.start(); });
    m_search->installEventFilter(new ClearOnEscape(m_search));
    connect(m_searchScope, &QComboBox::currentIndexChanged, this, [this] { m_searchTimer.start(); });
    auto* top = new QHBoxLayout;
    top->addWidget(m_folderName, 1);
    top->addWidget(m_searchScope);
    top->addWidget(m_search);

    // The categories.
    m_categories = new QListWidget(browser);
    m_categories->setObjectName("categories");
    m_categories->setAccessibleName(windowText("Results_CategoriesAccessibleName"));
    m_categories->setSpacing(2);
    m_categories->setIconSize(QSize(16, 16));
    connect(m_categories, &QListWidget::currentRowChanged, this, [this](int row) {
        if (row >= 0)
            m_diagram->setCategories(m_shownCategories, static_cast<std::size_t>(row));
        if (!m_updating && m_results && row >= 0)
            m_results->setSelectedMetaGroupAction(static_cast<std::size_t>(row));
    });

    // The size diagram under them; a click on a segment chooses its category in the list.
    m_diagram = new SizeDiagram(browser);
    m_diagram->setCategoryHandler(
        [this](std::size_t row) { m_categories->setCurrentRow(static_cast<int>(row)); });
    m_diagramButton = new QToolButton(browser);
    m_diagramButton->setObjectName("diagramButton");
    m_diagramButton->setText(windowText("Results_Diagram"));
    m_diagramButton->setCheckable(true);
    m_diagramButton->setChecked(true);
    m_diagramButton->setToolButtonStyle(Qt::ToolButtonTextOnly);
    m_diagramButton->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    connect(m_diagramButton, &QToolButton::clicked, this, [this] {
        if (m_results)
            m_results->toggleDiagramAction();
    });
    auto* categoriesBox = new QWidget(browser);
    categoriesBox->setMinimumWidth(190);
    categoriesBox->setMaximumWidth(260);
    auto* categoriesLayout = new QVBoxLayout(categoriesBox);
    categoriesLayout->setContentsMargins(0, 0, 0, 0);
    categoriesLayout->addWidget(m_categories, 1);
    categoriesLayout->addWidget(m_diagram);
    categoriesLayout->addWidget(m_diagramButton);

    // The groups.
    m_groupsModel = new GroupsModel(this);
    m_groupsTable = makeTable(m_groupsModel, browser, "groupsTable");
    m_groupsTable->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_groupsTable->setAccessibleName(windowText("Results_GroupsAccessibleName"));
    QHeaderView* header = m_groupsTable->horizontalHeader();
    header->setSectionsClickable(true);
    header->setSortIndicatorShown(true);
    header->setSectionResizeMode(QHeaderView::Interactive);
    header->setStretchLastSection(true);
    header->resizeSection(GroupsModel::Name, 260);
    header->resizeSection(GroupsModel::Type, 100);
    header->resizeSection(GroupsModel::Copies, 70);
    header->resizeSection(GroupsModel::Selected, 80);
    header->resizeSection(GroupsModel::Size, 90);
    connect(header, &QHeaderView::sectionClicked, this, &ResultsPage::headerClicked);
    connect(m_groupsTable->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &ResultsPage::groupSelectionChanged);
    connect(m_groupsModel, &QAbstractItemModel::modelReset, this, [this] {
        connect(m_groupsTable->selectionModel(), &QItemSelectionModel::selectionChanged, this,
                &ResultsPage::groupSelectionChanged, Qt::UniqueConnection);
    });

    // The selection commands.
    m_autoSelect = new QPushButton(windowText("Results_AutoSelect"), browser);
    m_autoSelect->setObjectName("autoSelectButton");
    m_autoSelect->setToolTip(windowText("Results_AutoSelectToolTip"));
    connect(m_autoSelect, &QPushButton::clicked, this, [this] {
        if (m_results)
            m_results->autoselectAction();
    });
    m_selectMenu = new QPushButton(windowText("Results_SelectMenu"), browser);
    m_selectMenu->setObjectName("selectMenuButton");
    auto* selectMenu = new QMenu(m_selectMenu);
    auto addCommand = [this](QMenu* menu, const char* key,
                             std::function<void(CVResultsViewController&)> run) {
        QAction* action = menu->addAction(windowText(key));
        action->setObjectName(key);
        connect(action, &QAction::triggered, this, [this, run] {
            if (m_results)
                run(*m_results);
        });
        return action;
    };
    addCommand(selectMenu, "Results_AutoSelectAll", [](auto& c) { c.autoselectAllAction(); });
    addCommand(selectMenu, "Results_KeepOldest", [](auto& c) { c.keepOldestFilesAction(); });
    addCommand(selectMenu, "Results_KeepNewest", [](auto& c) { c.keepMostRecentFilesAction(); });
    addCommand(selectMenu, "Results_SelectAllIn", [](auto& c) { c.openPathToCollectFiles(); });
    selectMenu->addSeparator();
    addCommand(selectMenu, "Results_Deselect", [](auto& c) { c.deselectFromMenuAction(); });
    addCommand(selectMenu, "Results_DeselectAll", [](auto& c) { c.deselectAllAction(); });
    m_selectMenu->setMenu(selectMenu);

    m_groupsMenu = new QPushButton(windowText("Results_GroupsMenu"), browser);
    m_groupsMenu->setObjectName("groupsMenuButton");
    m_groupsMenu->setToolTip(windowText("Results_GroupsMenuToolTip"));
    auto* groupsMenu = new QMenu(m_groupsMenu);
    addCommand(groupsMenu, "Results_LevelAuto", [](auto& c) { c.manualSelectionAction(kFolderLevelAuto); });
    addCommand(groupsMenu, "Results_LevelNewest",
               [](auto& c) { c.manualSelectionAction(kFolderLevelNewest); });
    addCommand(groupsMenu, "Results_LevelOldest",
               [](auto& c) { c.manualSelectionAction(kFolderLevelOldest); });
    addCommand(groupsMenu, "Results_LevelAny", [](auto& c) { c.manualSelectionAction(kFolderLevelAny); });
    groupsMenu->addSeparator();
    addCommand(groupsMenu, "Results_LevelDeselect", [](auto& c) { c.deselectGroupsFromListAction(); });
    m_groupsMenu->setMenu(groupsMenu);
    auto* commands = new QHBoxLayout;
    commands->addWidget(m_autoSelect);
    commands->addWidget(m_selectMenu);
    commands->addWidget(m_groupsMenu);
    commands->addStretch(1);

    // The files and the preview.
    m_filesModel = new FilesModel(this);
    m_filesModel->setToggleHandler([this](const std::shared_ptr<CVFile>& file) {
        if (m_results)
            m_results->switchFileSelectionAction(file);
    });
    m_filesTable = makeTable(m_filesModel, browser, "filesTable");
    m_filesTable->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_filesTable->setAccessibleName(windowText("Results_FilesAccessibleName"));
    m_filesTable->setAccessibleDescription(windowText("Results_FilesKeys"));
    m_filesTable->horizontalHeader()->setStretchLastSection(false);
    m_filesTable->horizontalHeader()->setSectionResizeMode(FilesModel::Folder, QHeaderView::Stretch);
    m_filesTable->horizontalHeader()->resizeSection(FilesModel::Name, 220);
    m_filesTable->horizontalHeader()->resizeSection(FilesModel::Size, 90);
    m_filesTable->horizontalHeader()->resizeSection(
        FilesModel::Modified, m_filesTable->fontMetrics().horizontalAdvance("8888-88-88 88:88") + 24);
    auto connectFiles = [this] {
        connect(m_filesTable->selectionModel(), &QItemSelectionModel::selectionChanged, this,
                &ResultsPage::fileSelectionChanged, Qt::UniqueConnection);
    };
    connectFiles();
    connect(m_filesModel, &QAbstractItemModel::modelReset, this, connectFiles);
    connect(m_filesTable, &QTableView::customContextMenuRequested, this, [this](const QPoint& at) {
        const auto file = m_filesModel->fileAt(m_filesTable->indexAt(at).row());
        if (!file || !m_results)
            return;
        QMenu* menu = makeFileMenu(file, this);
        menu->setAttribute(Qt::WA_DeleteOnClose);
        menu->popup(m_filesTable->viewport()->mapToGlobal(at));
    });
    connect(m_filesTable, &QTableView::activated, this, [this](const QModelIndex& index) {
        if (m_results)
            m_results->openMenuAction(m_filesModel->fileAt(index.row()));
    });
    auto* space =
        new QShortcut(QKeySequence(Qt::Key_Space), m_filesTable, nullptr, nullptr, Qt::WidgetShortcut);
    connect(space, &QShortcut::activated, this, [this] {
        if (m_results)
            m_results->showQuickLook();
    });
    // Space previews, so the keyboard marks and unmarks the current copy with Ctrl+Space,
    // or Insert where an input method takes Ctrl+Space, through its box (with the same
    // questions a click on the box asks).
    for (const QKeySequence& keys : {QKeySequence(Qt::CTRL | Qt::Key_Space), QKeySequence(Qt::Key_Insert)}) {
        auto* mark = new QShortcut(keys, m_filesTable, nullptr, nullptr, Qt::WidgetShortcut);
        connect(mark, &QShortcut::activated, this, [this] {
            const QModelIndex current = m_filesTable->currentIndex();
            if (!current.isValid())
                return;
            const QModelIndex box = m_filesModel->index(current.row(), FilesModel::Name);
            const bool marked = box.data(Qt::CheckStateRole) == QVariant(Qt::Checked);
            m_filesModel->setData(box, marked ? Qt::Unchecked : Qt::Checked, Qt::CheckStateRole);
        });
    }
    m_preview = new PreviewPane(browser);
    m_preview->setMinimumWidth(240);

    auto* filesSplit = new QSplitter(Qt::Horizontal, browser);
    filesSplit->addWidget(m_filesTable);
    filesSplit->addWidget(m_preview);
    filesSplit->setStretchFactor(0, 3);
    filesSplit->setStretchFactor(1, 1);
    auto* groupsBox = new QWidget(browser);
    auto* groupsLayout = new QVBoxLayout(groupsBox);
    groupsLayout->setContentsMargins(0, 0, 0, 0);
    groupsLayout->addWidget(m_groupsTable, 1);
    groupsLayout->addLayout(commands);
    auto* rightSplit = new QSplitter(Qt::Vertical, browser);
    rightSplit->addWidget(groupsBox);
    rightSplit->addWidget(filesSplit);
    rightSplit->setStretchFactor(0, 3);
    rightSplit->setStretchFactor(1, 2);
    auto* mainSplit = new QSplitter(Qt::Horizontal, browser);
    mainSplit->addWidget(categoriesBox);
    mainSplit->addWidget(rightSplit);
    mainSplit->setStretchFactor(1, 1);
    mainSplit->setChildrenCollapsible(false);

    // Bottom row: back to the scan; the amount selected and the collector.
    m_back = new QPushButton(windowText("Results_BackToScan"), browser);
    m_back->setObjectName("backButton");
    connect(m_back, &QPushButton::clicked, this, [this] {
        if (m_window)
            m_window->backToScan(false);
    });
    m_amount = new QLabel(browser);
    m_amount->setObjectName("amountLine");
    m_review = new QPushButton(windowText("Results_Review"), browser);
    m_review->setObjectName("reviewButton");
    m_review->setDefault(true);
    m_review->setToolTip(windowText("Results_ReviewToolTip"));
    connect(m_review, &QPushButton::clicked, this, [this] {
        if (m_window)
            m_window->showCollector();
    });
    auto* bottom = new QHBoxLayout;
    bottom->addWidget(m_back);
    bottom->addStretch(1);
    bottom->addWidget(m_amount);
    bottom->addWidget(m_review);

    auto* browserLayout = new QVBoxLayout(browser);
    browserLayout->addLayout(top);
    browserLayout->addWidget(mainSplit, 1);
    browserLayout->addLayout(bottom);

    m_collector = new CollectorPanel(m_stack);
    m_stack->addWidget(browser);
    m_stack->addWidget(m_collector);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_stack);
    updateReviewButton();
}

void ResultsPage::bind(CVResultsViewController* results, CVScanWindowController* window,
                       CVCollectorViewController* collector) {
    m_results = results;
    m_window = window;
    m_collectorController = collector;
    m_collector->bind(collector, this);
    if (!results) {
        m_groupsModel->setGroups(nullptr);
        m_filesModel->setFiles(nullptr);
        m_shownCategories.clear();
    }
    updateReviewButton();
}

QString ResultsPage::categoryLine(const CVMetaGroup& category) const {
    const QString name = text(CVMetaGroup::nameKey(category.groupID()));
    const char* key = category.count() == 1 ? "Results_CategoryCountsOne" : "Results_CategoryCounts";
    return name + "\n" + windowText(key).arg(category.count()).arg(qs(stringWithSize(category.size())));
}

void ResultsPage::showCategories(const std::vector<std::shared_ptr<CVMetaGroup>>& categories,
                                 std::optional<std::size_t> selectedRow) {
    m_updating = true;
    m_shownCategories = categories;
    m_categories->clear();
    for (const auto& category : categories) {
        auto* item = new QListWidgetItem(categoryLine(*category), m_categories);
        item->setData(Qt::UserRole, category->groupID());
        // The colour of its segment in the size diagram.
        item->setIcon(SizeDiagram::dotFor(category->groupID()));
    }
    if (selectedRow)
        m_categories->setCurrentRow(static_cast<int>(*selectedRow));
    m_diagram->setCategories(categories, selectedRow);
    m_updating = false;
}

void ResultsPage::showGroups(const std::vector<std::shared_ptr<CVGroup>>& groups,
                             const std::vector<std::size_t>& rows) {
    m_updating = true;
    m_groupsModel->setGroups(&groups);
    selectRows(m_groupsTable, rows);
    m_updating = false;
}

void ResultsPage::showFiles(const std::vector<std::shared_ptr<CVFile>>& files,
                            const std::vector<std::size_t>& rows) {
    m_updating = true;
    m_filesModel->setFiles(&files);
    selectRows(m_filesTable, rows);
    m_updating = false;
    const auto first = files.empty() ? nullptr : files[rows.empty() ? 0 : rows.front()];
    m_preview->showFile(first ? first->path() : std::string());
}

void ResultsPage::refreshRows() {
    for (int row = 0; row < m_categories->count() && row < static_cast<int>(m_shownCategories.size()); ++row)
        m_categories->item(row)->setText(categoryLine(*m_shownCategories[static_cast<std::size_t>(row)]));
    m_groupsModel->refresh();
    m_filesModel->refresh();
    m_diagram->refresh();
    updateReviewButton();
}

void ResultsPage::setFolderName(const std::string& name) {
    m_folderName->setText(qs(name));
}

void ResultsPage::setSortIndicator(std::int64_t type, bool ascending) {
    m_groupsTable->horizontalHeader()->setSortIndicator(GroupsModel::columnForSortType(type),
                                                        ascending ? Qt::AscendingOrder : Qt::DescendingOrder);
}

void ResultsPage::setDiagramShown(bool shown, const QString& toolTip) {
    m_diagram->setVisible(shown);
    m_diagramButton->setChecked(shown);
    m_diagramButton->setToolTip(toolTip);
}

void ResultsPage::focusTable(ResultsTable table) {
    switch (table) {
    case ResultsTable::Categories:
        m_categories->setFocus();
        break;
    case ResultsTable::Groups:
        m_groupsTable->setFocus();
        break;
    case ResultsTable::Files:
        m_filesTable->setFocus();
        break;
    }
}

void ResultsPage::setAmountLine(const QString& line) {
    m_amount->setText(line);
    updateReviewButton();
}

void ResultsPage::updateReviewButton() {
    const bool any = m_collectorController && m_collectorController->notEmpty();
    m_review->setEnabled(any);
    m_amount->setVisible(any);
}

void ResultsPage::clearSearch() {
    const QSignalBlocker block(m_search);
    m_search->clear();
    m_searchTimer.stop();
}

void ResultsPage::focusSearch() {
    m_search->setFocus();
    m_search->selectAll();
}

void ResultsPage::searchChanged() {
    if (m_window)
        m_window->filterChanged(m_search->text().toStdString(), m_searchScope->currentIndex());
}

void ResultsPage::showCollector(bool shown) {
    m_stack->setCurrentIndex(shown ? 1 : 0);
    if (!shown)
        m_groupsTable->setFocus();
}

bool ResultsPage::collectorShown() const {
    return m_stack->currentIndex() == 1;
}

void ResultsPage::groupSelectionChanged() {
    if (m_updating || !m_results)
        return;
    m_results->setSelectedGroupRows(selectedRows(m_groupsTable));
}

void ResultsPage::fileSelectionChanged() {
    if (m_updating || !m_results)
        return;
    const auto rows = selectedRows(m_filesTable);
    m_results->setSelectedFileRows(rows);
    const auto file = m_filesModel->fileAt(rows.empty() ? m_filesTable->currentIndex().row()
                                                        : static_cast<int>(rows.front()));
    m_preview->showFile(file ? file->path() : std::string());
}

void ResultsPage::headerClicked(int column) {
    if (!m_results)
        return;
    const std::int64_t type = GroupsModel::sortTypeForColumn(column);
    // A second click on the same column turns the order round; a new column starts
    // with names A to Z and numbers largest first.
    const bool ascending = type == m_results->sortType() ? !m_results->sortAscending() : sortTypeIsText(type);
    m_results->sortAction(type, ascending);
    setSortIndicator(m_results->sortType(), m_results->sortAscending());
}

QMenu* ResultsPage::makeFileMenu(const std::shared_ptr<CVFile>& file, QWidget* parent) {
    auto* menu = new QMenu(parent);
    menu->setObjectName("fileMenu");
    CVResultsViewController* results = m_results;
    connect(menu->addAction(windowText("Results_Open")), &QAction::triggered, this,
            [results, file] { results->openMenuAction(file); });
    QMenu* openWith = menu->addMenu(windowText("Results_OpenWith"));
    openWith->setObjectName("openWithMenu");
    for (const OpenWithMenuItem& item : results->openWithMenu(file)) {
        if (item.kind == OpenWithMenuItem::Kind::Separator) {
            openWith->addSeparator();
            continue;
        }
        QAction* action = openWith->addAction(qs(item.title));
        action->setEnabled(item.enabled);
        if (item.kind == OpenWithMenuItem::Kind::Other)
            connect(action, &QAction::triggered, this,
                    [results, file] { results->openWithApplicationOtherSelected(file); });
        else if (item.kind != OpenWithMenuItem::Kind::None)
            connect(action, &QAction::triggered, this, [results, file, id = item.applicationIdentifier] {
                results->openWithApplicationSelected(file, id);
            });
    }
    connect(menu->addAction(windowText("Results_Reveal")), &QAction::triggered, this,
            [results, file] { results->revealInFinderAction(file); });
    connect(menu->addAction(windowText("Results_Preview")), &QAction::triggered, this,
            [results] { results->showQuickLook(); });
    menu->addSeparator();
    connect(menu->addAction(windowText("Results_SelectAllButThis")), &QAction::triggered, this,
            [results, file] { results->selectAllButFileAction(file); });
    connect(menu->addAction(windowText("Results_Exclude")), &QAction::triggered, this,
            [results, file] { results->addToIgnoreListAction(file); });
    return menu;
}

// ---- The face -----------------------------------------------------------------------------

ResultsFace::~ResultsFace() {
    if (m_page) {
        m_page->bind(nullptr, nullptr, nullptr);
        m_page->hide();
        m_page->deleteLater();
    }
}

void ResultsFace::showCategories(const std::vector<std::shared_ptr<CVMetaGroup>>& categories,
                                 std::optional<std::size_t> selectedRow) {
    if (m_page)
        m_page->showCategories(categories, selectedRow);
}

void ResultsFace::showGroups(const std::vector<std::shared_ptr<CVGroup>>& groups,
                             const std::vector<std::size_t>& selectedRows) {
    if (m_page)
        m_page->showGroups(groups, selectedRows);
}

void ResultsFace::showFiles(const std::vector<std::shared_ptr<CVFile>>& files,
                            const std::vector<std::size_t>& selectedRows) {
    if (m_page)
        m_page->showFiles(files, selectedRows);
}

void ResultsFace::refreshRows() {
    if (m_page)
        m_page->refreshRows();
}

void ResultsFace::setFolderName(const std::string& name) {
    if (m_page)
        m_page->setFolderName(name);
}

void ResultsFace::setDiagramShown(bool shown, const std::string& toolTip) {
    if (m_page)
        m_page->setDiagramShown(shown, qs(toolTip));
}

void ResultsFace::setSortButton(std::int64_t type, bool ascending) {
    if (m_page)
        m_page->setSortIndicator(type, ascending);
}

void ResultsFace::makeFirstResponder(ResultsTable table) {
    if (m_page)
        m_page->focusTable(table);
}

SuppressibleAlertReply ResultsFace::runSuppressibleAlert(const std::string& message,
                                                         const std::string& informative,
                                                         const std::string& defaultButton,
                                                         const std::string& alternateButton,
                                                         const std::string& suppressionTitle) {
    QMessageBox box(m_page ? m_page->window() : nullptr);
    box.setObjectName("allCopiesSheet");
    box.setIcon(QMessageBox::Warning);
    box.setText(qs(message));
    box.setInformativeText(qs(informative));
    box.setWindowModality(Qt::WindowModal);
    QPushButton* def = box.addButton(qs(defaultButton), QMessageBox::AcceptRole);
    QPushButton* alt = box.addButton(qs(alternateButton), QMessageBox::RejectRole);
    // Keeping is the safe answer: Return and Escape both keep.
    box.setDefaultButton(alt);
    box.setEscapeButton(alt);
    auto* suppress = new QCheckBox(qs(suppressionTitle), &box);
    box.setCheckBox(suppress);
    box.exec();
    SuppressibleAlertReply reply;
    reply.choice = box.clickedButton() == def ? AlertChoice::Default : AlertChoice::Alternate;
    reply.suppressed = suppress->isChecked();
    return reply;
}

void ResultsFace::showOpenPanelSheet(const std::string& prompt,
                                     std::function<void(std::optional<std::string>)> completion) {
    auto* dialog =
        new QFileDialog(m_page ? m_page->window() : nullptr, windowText("Results_SelectAllInTitle"));
    dialog->setObjectName("selectInPanel");
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setLabelText(QFileDialog::Accept, qs(prompt));
    dialog->setWindowModality(Qt::WindowModal);
    QObject::connect(dialog, &QFileDialog::finished, dialog, [dialog, completion](int result) {
        const QStringList files = dialog->selectedFiles();
        if (result != QDialog::Accepted || files.isEmpty())
            completion(std::nullopt);
        else
            completion(QFile::encodeName(files.front()).toStdString());
    });
    dialog->open();
}

void ResultsFace::showSavePanel(std::function<void(std::optional<std::string>)> completion) {
    auto* dialog = new QFileDialog(m_page ? m_page->window() : nullptr, text("ExportPanel_Title"));
    dialog->setObjectName("exportPanel");
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->selectFile(text("ExportPanel_FileNamePlaceholder"));
    dialog->setLabelText(QFileDialog::Accept, buttonText("ExportPanel_Export"));
    dialog->setWindowModality(Qt::WindowModal);
    QObject::connect(dialog, &QFileDialog::finished, dialog, [dialog, completion](int result) {
        const QStringList files = dialog->selectedFiles();
        if (result != QDialog::Accepted || files.isEmpty())
            completion(std::nullopt);
        else
            completion(QFile::encodeName(files.front()).toStdString());
    });
    dialog->open();
}

void ResultsFace::showError(const std::string& message) {
    QMessageBox::warning(m_page ? m_page->window() : nullptr, windowText("Window_Title"), qs(message));
}

} // namespace corvel::gui

#include "collector_panel.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QMessageBox>
#include <QShortcut>
#include <QTimer>
#include <QVBoxLayout>
#include <set>

#include "app/collector_view_controller.h"
#include "engine/file_sizer.h"
#include "gui_text.h"
#include "results_models.h"
#include "results_page.h"

namespace corvel::gui {

namespace {

QLabel* bigLabel(QWidget* parent, double scale, const char* name) {
    auto* label = new QLabel(parent);
    label->setObjectName(name);
    label->setAlignment(Qt::AlignCenter);
    label->setWordWrap(true);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * scale);
    font.setBold(scale > 1.3);
    label->setFont(font);
    return label;
}

} // namespace

// ---- The model ----------------------------------------------------------------------------

void CollectorModel::setList(const std::vector<CollectorListGroup>* list) {
    beginResetModel();
    m_list = list;
    endResetModel();
}

std::shared_ptr<CVFile> CollectorModel::fileAt(const QModelIndex& index) const {
    if (!m_list || !index.isValid() || index.internalId() == 0)
        return nullptr;
    const auto& group = (*m_list)[index.internalId() - 1];
    return static_cast<std::size_t>(index.row()) < group.files.size() ? group.files[index.row()] : nullptr;
}

QModelIndex CollectorModel::index(int row, int column, const QModelIndex& parent) const {
    if (!m_list || row < 0 || column < 0 || column >= ColumnCount)
        return {};
    if (!parent.isValid())
        return static_cast<std::size_t>(row) < m_list->size() ? createIndex(row, column, quintptr(0))
                                                              : QModelIndex();
    if (parent.internalId() != 0)
        return {};
    const auto& group = (*m_list)[static_cast<std::size_t>(parent.row())];
    if (static_cast<std::size_t>(row) >= group.files.size())
        return {};
    return createIndex(row, column, quintptr(parent.row() + 1));
}

QModelIndex CollectorModel::parent(const QModelIndex& child) const {
    if (!child.isValid() || child.internalId() == 0)
        return {};
    return createIndex(static_cast<int>(child.internalId() - 1), 0, quintptr(0));
}

int CollectorModel::rowCount(const QModelIndex& parent) const {
    if (!m_list)
        return 0;
    if (!parent.isValid())
        return static_cast<int>(m_list->size());
    if (parent.internalId() != 0 || parent.column() != 0)
        return 0;
    return static_cast<int>((*m_list)[static_cast<std::size_t>(parent.row())].files.size());
}

int CollectorModel::columnCount(const QModelIndex&) const {
    return ColumnCount;
}

QVariant CollectorModel::data(const QModelIndex& index, int role) const {
    if (!m_list || !index.isValid())
        return {};
    if (role == Qt::TextAlignmentRole)
        return index.column() == Size ? QVariant(Qt::AlignRight | Qt::AlignVCenter)
                                      : QVariant(Qt::AlignLeft | Qt::AlignVCenter);
    if (index.internalId() == 0) {
        const auto& entry = (*m_list)[static_cast<std::size_t>(index.row())];
        if (role == Qt::FontRole) {
            QFont font;
            font.setBold(true);
            return font;
        }
        if (role != Qt::DisplayRole)
            return {};
        std::uint64_t size = 0;
        for (const auto& file : entry.files)
            size += file->sizeOnDisk();
        switch (index.column()) {
        case Name:
            return qs(entry.group->name());
        case Folder:
            return windowText("Collector_GroupCopies")
                .arg(entry.files.size())
                .arg(entry.group->childrenCount());
        case Size:
            return qs(stringWithSize(size));
        default:
            return {};
        }
    }
    const auto file = fileAt(index);
    if (!file)
        return {};
    if (index.column() == Keep) {
        if (role == Qt::ForegroundRole)
            return QPalette().brush(QPalette::Link);
        if (role == Qt::ToolTipRole)
            return windowText("Collector_KeepToolTip");
        return role == Qt::DisplayRole ? buttonText("ButtonTitle_Keep") : QVariant();
    }
    if (role == Qt::ToolTipRole)
        return qs(file->path());
    if (role != Qt::DisplayRole)
        return {};
    switch (index.column()) {
    case Name:
        return fileNameOf(*file);
    case Folder:
        return folderOf(*file);
    case Size:
        return qs(stringWithSize(file->sizeOnDisk()));
    default:
        return {};
    }
}

QVariant CollectorModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    static const char* const keys[] = {"Results_ColumnFile", "Results_ColumnFolder", "Results_ColumnSize",
                                       "Collector_ColumnKeep"};
    return section >= 0 && section < ColumnCount ? windowText(keys[section]) : QVariant();
}

// ---- The panel ----------------------------------------------------------------------------

CollectorPanel::CollectorPanel(QWidget* parent) : QWidget(parent) {
    setObjectName("collectorPanel");
    setAccessibleName(windowText("Collector_AccessibleName"));
    m_pages = new QStackedWidget(this);
    m_pages->addWidget(makeListPage());
    m_pages->addWidget(makeSuccessPage());
    m_pages->addWidget(makeErrorPage());
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_pages);
    auto* escape =
        new QShortcut(QKeySequence(Qt::Key_Escape), this, nullptr, nullptr, Qt::WidgetWithChildrenShortcut);
    connect(escape, &QShortcut::activated, this, [this] {
        if (m_controller)
            m_controller->closeButtonAction(true);
    });
}

QWidget* CollectorPanel::makeListPage() {
    auto* page = new QWidget(m_pages);
    auto* title = bigLabel(page, 1.4, "collectorTitle");
    title->setText(windowText("Collector_Title"));
    title->setAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    title->setWordWrap(false);
    m_amount = new QLabel(page);
    m_amount->setObjectName("collectorAmount");
    m_mode = new QLabel(page);
    m_mode->setObjectName("removalMode");
    m_mode->setWordWrap(true);
    m_message = new QLabel(page);
    m_message->setObjectName("selectionMessage");
    m_message->setWordWrap(true);
    m_message->hide();

    m_model = new CollectorModel(this);
    m_list = new QTreeView(page);
    m_list->setObjectName("collectorList");
    m_list->setAccessibleName(windowText("Collector_ListAccessibleName"));
    m_list->setModel(m_model);
    m_list->setUniformRowHeights(true);
    m_list->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_list->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_list->setTextElideMode(Qt::ElideMiddle);
    m_list->setAlternatingRowColors(true);
    m_list->header()->setStretchLastSection(false);
    m_list->header()->resizeSection(CollectorModel::Name, 300);
    m_list->header()->setSectionResizeMode(CollectorModel::Folder, QHeaderView::Stretch);
    m_list->header()->resizeSection(CollectorModel::Size, 100);
    m_list->header()->resizeSection(CollectorModel::Keep, 80);
    connect(m_list, &QTreeView::clicked, this, [this](const QModelIndex& index) {
        const auto file = m_model->fileAt(index);
        if (!file || index.column() != CollectorModel::Keep || !m_controller)
            return;
        // The list is rebuilt by the keep: not inside the view's own click.
        QPointer<CollectorPanel> self(this);
        QTimer::singleShot(0, this, [self, file] {
            if (self && self->m_controller)
                self->m_controller->keepFile(file);
        });
    });

    m_keep = new QPushButton(windowText("Collector_KeepSelected"), page);
    m_keep->setObjectName("keepButton");
    m_keep->setToolTip(windowText("Collector_KeepToolTip"));
    connect(m_keep, &QPushButton::clicked, this, &CollectorPanel::keepSelected);
    m_putBack = new QPushButton(windowText("Collector_PutAllBack"), page);
    m_putBack->setObjectName("putBackButton");
    connect(m_putBack, &QPushButton::clicked, this, [this] {
        if (m_controller)
            m_controller->putBack();
    });
    m_close = new QPushButton(windowText("Collector_BackToResults"), page);
    m_close->setObjectName("closeButton");
    m_close->setToolTip(buttonText("ButtonToolTip_BackToResults"));
    connect(m_close, &QPushButton::clicked, this, [this] {
        if (m_controller)
            m_controller->closeButtonAction(false);
    });
    m_progress = new QProgressBar(page);
    m_progress->setObjectName("removalProgress");
    m_progress->setAccessibleName(windowText("Collector_ProgressAccessibleName"));
    m_progress->setTextVisible(true);
    m_progress->setFormat(QString());
    m_progress->hide();
    m_remove = new QPushButton(buttonText("ButtonTitle_Remove"), page);
    m_remove->setObjectName("removeButton");
    m_remove->setDefault(true);
    m_remove->setMinimumWidth(120);
    connect(m_remove, &QPushButton::clicked, this, [this] {
        if (m_controller)
            m_controller->shreddList();
    });

    auto* head = new QHBoxLayout;
    head->addWidget(title);
    head->addStretch(1);
    head->addWidget(m_amount);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_close);
    buttons->addWidget(m_putBack);
    buttons->addWidget(m_keep);
    buttons->addStretch(1);
    buttons->addWidget(m_progress, 2);
    buttons->addWidget(m_remove);
    auto* layout = new QVBoxLayout(page);
    layout->addLayout(head);
    layout->addWidget(m_mode);
    layout->addWidget(m_message);
    layout->addWidget(m_list, 1);
    layout->addLayout(buttons);
    // Tab goes through the buttons as they stand, left to right.
    QWidget::setTabOrder(m_list, m_close);
    QWidget::setTabOrder(m_close, m_putBack);
    QWidget::setTabOrder(m_putBack, m_keep);
    QWidget::setTabOrder(m_keep, m_remove);
    return page;
}

QWidget* CollectorPanel::makeSuccessPage() {
    auto* page = new QWidget(m_pages);
    auto* done = bigLabel(page, 1.2, "cleanupDone");
    done->setText(windowText("Collector_CleanupComplete"));
    m_freed = bigLabel(page, 2.2, "sizeFreed");
    m_level = bigLabel(page, 1.3, "levelRank");
    m_total = bigLabel(page, 1.0, "totalFreed");
    m_total->setForegroundRole(QPalette::PlaceholderText);
    m_newScan = new QPushButton(buttonText("ButtonTitle_NewScan"), page);
    m_newScan->setObjectName("newScanButton");
    m_newScan->setToolTip(buttonText("ButtonToolTip_NewScan"));
    m_newScan->setDefault(true);
    connect(m_newScan, &QPushButton::clicked, this, [this] {
        if (m_controller)
            m_controller->newScan();
    });
    m_done = new QPushButton(windowText("Collector_BackToResults"), page);
    m_done->setObjectName("doneButton");
    connect(m_done, &QPushButton::clicked, this, [this] {
        if (m_controller)
            m_controller->doneButtonAction();
    });
    m_backToScan = new QPushButton(windowText("Results_BackToScan"), page);
    m_backToScan->setObjectName("backToScanButton");
    connect(m_backToScan, &QPushButton::clicked, this, [this] {
        if (m_controller)
            m_controller->backToScan();
    });
    for (QPushButton* b : {m_newScan, m_done, m_backToScan})
        b->setMinimumWidth(150);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(m_backToScan);
    buttons->addWidget(m_done);
    buttons->addWidget(m_newScan);
    buttons->addStretch(1);
    QWidget::setTabOrder(m_backToScan, m_done);
    QWidget::setTabOrder(m_done, m_newScan);
    auto* layout = new QVBoxLayout(page);
    layout->addStretch(2);
    layout->addWidget(done);
    layout->addWidget(m_freed);
    layout->addSpacing(12);
    layout->addWidget(m_level);
    layout->addWidget(m_total);
    layout->addSpacing(24);
    layout->addLayout(buttons);
    layout->addStretch(3);
    return page;
}

QWidget* CollectorPanel::makeErrorPage() {
    auto* page = new QWidget(m_pages);
    auto* title = bigLabel(page, 1.4, "errorsTitle");
    title->setText(windowText("Collector_ErrorsTitle"));
    title->setAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    title->setWordWrap(false);
    m_undeleted = new QLabel(page);
    m_undeleted->setObjectName("undeletedSize");
    m_errors = new QTableWidget(0, 2, page);
    m_errors->setObjectName("errorTable");
    m_errors->setAccessibleName(windowText("Collector_ErrorsTitle"));
    m_errors->setHorizontalHeaderLabels(
        {windowText("Results_ColumnFile"), windowText("Collector_ColumnReason")});
    m_errors->verticalHeader()->hide();
    m_errors->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_errors->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_errors->setTextElideMode(Qt::ElideMiddle);
    // Tab leaves the table; the arrows move between its rows.
    m_errors->setTabKeyNavigation(false);
    m_errors->setWordWrap(false);
    m_errors->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    m_errors->horizontalHeader()->setSectionResizeMode(1, QHeaderView::Stretch);
    m_errorsDone = new QPushButton(windowText("Collector_BackToResults"), page);
    m_errorsDone->setObjectName("errorsDoneButton");
    connect(m_errorsDone, &QPushButton::clicked, this, [this] {
        if (m_controller)
            m_controller->doneButtonAction();
    });
    m_errorsNewScan = new QPushButton(buttonText("ButtonTitle_NewScan"), page);
    m_errorsNewScan->setObjectName("errorsNewScanButton");
    connect(m_errorsNewScan, &QPushButton::clicked, this, [this] {
        if (m_controller)
            m_controller->newScan();
    });
    auto* head = new QHBoxLayout;
    head->addWidget(title);
    head->addStretch(1);
    head->addWidget(m_undeleted);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(m_errorsDone);
    buttons->addWidget(m_errorsNewScan);
    auto* layout = new QVBoxLayout(page);
    layout->addLayout(head);
    layout->addWidget(m_errors, 1);
    layout->addLayout(buttons);
    return page;
}

void CollectorPanel::bind(CVCollectorViewController* controller, ResultsPage* page) {
    m_controller = controller;
    m_page = page;
    if (!controller)
        m_model->setList(nullptr);
}

void CollectorPanel::showList(const std::vector<CollectorListGroup>& groups) {
    m_model->setList(&groups);
    m_list->expandAll();
}

void CollectorPanel::setAmountLine(const QString& line) {
    m_amount->setText(line);
    if (m_page)
        m_page->setAmountLine(line);
}

void CollectorPanel::setRemovalMode(bool toTrash) {
    m_mode->setText(windowText(toTrash ? "Collector_ModeTrash" : "Collector_ModeDelete"));
    // Deleting for good is said in red, not in passing.
    QPalette palette = m_mode->palette();
    palette.setColor(QPalette::WindowText,
                     toTrash ? this->palette().color(QPalette::WindowText) : QColor(0xc0, 0x1c, 0x28));
    m_mode->setPalette(palette);
}

void CollectorPanel::setRemoveButton(const QString& title, const QString& toolTip) {
    m_remove->setText(title);
    m_remove->setToolTip(toolTip);
    m_remove->setAccessibleName(title);
}

void CollectorPanel::setButtonsEnabled(bool enabled) {
    for (QPushButton* b : {m_keep, m_putBack, m_close})
        b->setEnabled(enabled);
}

void CollectorPanel::startProgress() {
    m_reasons.clear();
    m_progress->setRange(0, 0);
    m_progress->show();
}

void CollectorPanel::advanceProgress(std::uint64_t handled, std::uint64_t total) {
    // Kept within int: the bar shows thousandths for very long lists.
    const int scale = total > 1000000 ? 1000 : 1;
    m_progress->setRange(0, static_cast<int>(total / scale));
    m_progress->setValue(static_cast<int>(std::min(handled, total) / scale));
    m_progress->setFormat(windowText("Collector_Progress").arg(handled).arg(total));
}

void CollectorPanel::endProgress() {
    m_progress->hide();
}

void CollectorPanel::fileFailed(const CVFile& file, const std::string& reason) {
    m_reasons[file.path()] = qs(reason);
}

void CollectorPanel::showSummary(const CleanupSummary& summary) {
    m_freed->setText(windowText("Collector_Freed").arg(qs(summary.sizeFreedText)));
    m_level->setText(windowText("Collector_Level").arg(summary.level).arg(qs(summary.rank)));
    m_total->setText(windowText("Collector_TotalFreed").arg(qs(summary.totalSavedText)));
}

void CollectorPanel::showFailedFiles(const std::vector<std::shared_ptr<CVFile>>& files) {
    m_errors->setRowCount(static_cast<int>(files.size()));
    for (std::size_t i = 0; i < files.size(); ++i) {
        const int row = static_cast<int>(i);
        auto* path = new QTableWidgetItem(qs(files[i]->path()));
        path->setToolTip(path->text());
        m_errors->setItem(row, 0, path);
        const auto reason = m_reasons.find(files[i]->path());
        auto* why = new QTableWidgetItem(reason == m_reasons.end() ? QString() : reason->second);
        why->setToolTip(why->text());
        m_errors->setItem(row, 1, why);
    }
}

void CollectorPanel::showSuccessPage() {
    m_progress->hide();
    m_pages->setCurrentIndex(1);
    m_newScan->setFocus();
}

void CollectorPanel::showErrorPage(const QString& undeletedSizeText) {
    m_progress->hide();
    m_undeleted->setText(undeletedSizeText);
    m_pages->setCurrentIndex(2);
    m_errors->setFocus();
}

void CollectorPanel::showListPage() {
    m_pages->setCurrentIndex(0);
}

void CollectorPanel::showSelectionMessage(const QString& warning, const QString& details) {
    m_message->setText(details.isEmpty() ? warning : warning + " " + details);
    m_message->setVisible(!warning.isEmpty());
}

CollectorPanel::Page CollectorPanel::page() const {
    switch (m_pages->currentIndex()) {
    case 1:
        return Page::Success;
    case 2:
        return Page::Errors;
    default:
        return Page::List;
    }
}

void CollectorPanel::keepSelected() {
    if (!m_controller)
        return;
    std::vector<std::shared_ptr<CVFile>> files;
    std::set<const CVFile*> seen;
    for (const QModelIndex& index : m_list->selectionModel()->selectedRows())
        if (auto file = m_model->fileAt(index); file && seen.insert(file.get()).second)
            files.push_back(file);
    for (const auto& file : files)
        m_controller->keepFile(file);
}

// ---- The face -----------------------------------------------------------------------------

void CollectorFace::showList(const std::vector<CollectorListGroup>& groups) {
    if (m_panel)
        m_panel->showList(groups);
}

void CollectorFace::deselectAllRows() {
    if (m_panel)
        m_panel->list()->clearSelection();
}

void CollectorFace::setAmountLine(const std::string& text) {
    if (m_panel)
        m_panel->setAmountLine(qs(text));
}

void CollectorFace::setRemovalMode(bool toTrash) {
    if (m_panel)
        m_panel->setRemovalMode(toTrash);
}

void CollectorFace::setRemoveButtonEnabled(bool enabled) {
    if (m_panel)
        m_panel->removeButton()->setEnabled(enabled);
}

void CollectorFace::slideIn(std::function<void()> done) {
    if (m_panel) {
        m_panel->showListPage();
        if (ResultsPage* page = m_panel->resultsPage())
            page->showCollector(true);
    }
    QTimer::singleShot(0, [done = std::move(done)] { done(); });
}

void CollectorFace::slideOut(std::function<void()> done) {
    if (m_panel) {
        if (ResultsPage* page = m_panel->resultsPage())
            page->showCollector(false);
        m_panel->showListPage();
    }
    QTimer::singleShot(0, [done = std::move(done)] { done(); });
}

void CollectorFace::setListFirstResponder(bool first) {
    if (m_panel && first)
        m_panel->list()->setFocus();
}

AlertChoice CollectorFace::runModalAlert(const std::string& message, const std::string& informative,
                                         const std::string& defaultButton,
                                         const std::string& alternateButton) {
    QMessageBox box(m_panel ? m_panel->window() : nullptr);
    box.setObjectName("collectorAlert");
    box.setIcon(QMessageBox::Question);
    box.setText(qs(message));
    box.setInformativeText(qs(informative));
    box.setWindowModality(Qt::WindowModal);
    QPushButton* def = box.addButton(qs(defaultButton), QMessageBox::AcceptRole);
    QPushButton* alt = box.addButton(qs(alternateButton), QMessageBox::RejectRole);
    box.setDefaultButton(def);
    box.setEscapeButton(alt);
    box.exec();
    return box.clickedButton() == def ? AlertChoice::Default : AlertChoice::Alternate;
}

void CollectorFace::showCleanupSummary(const CleanupSummary& summary) {
    if (m_panel)
        m_panel->showSummary(summary);
}

void CollectorFace::showFailedFiles(const std::vector<std::shared_ptr<CVFile>>& files) {
    if (m_panel)
        m_panel->showFailedFiles(files);
}

void CollectorFace::showSelectionMessage(const std::string& warning, const std::string& details) {
    if (m_panel)
        m_panel->showSelectionMessage(qs(warning), qs(details));
}

void CollectorFace::setRemoveButton(const std::string& title, const std::string& toolTip) {
    if (m_panel)
        m_panel->setRemoveButton(qs(title), qs(toolTip));
}

void CollectorFace::setButtonsEnabled(bool enabled) {
    if (m_panel)
        m_panel->setButtonsEnabled(enabled);
}

void CollectorFace::startShredderAnimation() {
    if (m_panel)
        m_panel->startProgress();
}

void CollectorFace::advanceShredderAnimation(std::uint64_t handled, std::uint64_t total) {
    if (m_panel)
        m_panel->advanceProgress(handled, total);
}

void CollectorFace::endShredderAnimations() {
    if (m_panel)
        m_panel->endProgress();
}

void CollectorFace::fileHandled(const CVFile& file, bool ok, const std::string& reason) {
    if (m_panel && !ok)
        m_panel->fileFailed(file, reason);
}

void CollectorFace::showSuccessView() {
    if (m_panel)
        m_panel->showSuccessPage();
}

void CollectorFace::showErrorList(const std::string& undeletedSizeText) {
    if (m_panel)
        m_panel->showErrorPage(qs(undeletedSizeText));
}

} // namespace corvel::gui

#include "main_window.h"

#include <QCloseEvent>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QScreen>

#include "app/results_roles.h"
#include "app/scan_window_controller.h"
#include "engine/file_sizer.h"
#include "gui_text.h"
#include "platform/text_format.h"
#include "platform/user_defaults.h"

namespace corvel::gui {

MainWindow::MainWindow(UserDefaults& defaults, QWidget* parent) : QMainWindow(parent), m_defaults(defaults) {
    setObjectName("mainWindow");
    setWindowTitle(windowText("Window_Title"));
    m_stack = new QStackedWidget(this);
    m_scanPage = new ScanPage(m_stack);
    m_stack->addWidget(m_scanPage);
    setCentralWidget(m_stack);
    setAcceptDrops(true);

    ScanPage* page = m_scanPage;
    page->startButton()->hide();
    page->stopButton()->hide();
    page->resultsButton()->hide();
    page->collectorButton()->hide();
    connect(page->plusButton(), &QToolButton::clicked, this, [this] {
        if (m_controller)
            m_controller->addScanPath(true);
    });
    connect(page->startButton(), &QPushButton::clicked, this, [this] {
        if (m_controller)
            m_controller->startScanAction(false);
    });
    connect(page->stopButton(), &QPushButton::clicked, this, [this] {
        if (!m_controller)
            return;
        if (m_stopAction == StopButtonAction::CancelScan)
            m_controller->cancelScan();
        else
            m_controller->newScan();
    });
    connect(page->resultsButton(), &QPushButton::clicked, this, [this] {
        if (m_controller)
            m_controller->showResults(true);
    });
    connect(page->collectorButton(), &QPushButton::clicked, this, [this] {
        if (m_controller && m_controller->windowState() >= WindowStateResults)
            m_controller->showCollector();
    });
    m_collectorTimer.setInterval(250);
    connect(&m_collectorTimer, &QTimer::timeout, this, &MainWindow::refreshCollectorButton);
    useScanSize();
}

MainWindow::~MainWindow() = default;

void MainWindow::setController(CVScanWindowController* controller) {
    m_controller = controller;
    m_scanPage->dropZone()->setControl(controller ? &controller->scanControl() : nullptr);
}

void MainWindow::setStatus(const std::string& text) {
    m_scanPage->statusLabel()->setText(qs(text));
}
void MainWindow::setSubStatus(const std::string& text) {
    m_scanPage->subStatusLabel()->setText(qs(text));
}
void MainWindow::setStartButtonHidden(bool hidden) {
    m_scanPage->startButton()->setHidden(hidden);
}
void MainWindow::setPlusButtonHidden(bool hidden) {
    m_scanPage->plusButton()->setHidden(hidden);
}

void MainWindow::setStopButton(const std::string& title, const std::string& toolTip,
                               StopButtonAction action) {
    QPushButton* stop = m_scanPage->stopButton();
    stop->setText(qs(title));
    stop->setToolTip(qs(toolTip));
    stop->setAccessibleName(qs(title));
    m_stopAction = action;
}

void MainWindow::setStopButtonHidden(bool hidden) {
    m_scanPage->stopButton()->setHidden(hidden);
}

void MainWindow::setResultsButton(const std::string& title, const std::string& toolTip) {
    QPushButton* results = m_scanPage->resultsButton();
    results->setText(qs(title));
    results->setToolTip(qs(toolTip));
    results->setAccessibleName(qs(title));
}

void MainWindow::setResultsButtonHidden(bool hidden) {
    m_scanPage->resultsButton()->setHidden(hidden);
}
void MainWindow::setResultsButtonEnabled(bool enabled) {
    m_scanPage->resultsButton()->setEnabled(enabled);
}

void MainWindow::bindCollectorButton(CollectorRole& collector) {
    m_collector = &collector;
    refreshCollectorButton();
    m_collectorTimer.start();
}

void MainWindow::unbindCollectorButton() {
    m_collector = nullptr;
    m_collectorTimer.stop();
    m_scanPage->collectorButton()->hide();
}

void MainWindow::refreshCollectorButton() {
    QPushButton* button = m_scanPage->collectorButton();
    if (!m_collector || m_collector->count() == 0) {
        button->hide();
        return;
    }
    const std::string line =
        formatf(localizedCount("TextFieldString_DuplicatesAmountAndSize", m_collector->count()),
                stringWithSize(m_collector->size()), m_collector->count());
    button->setText(qs(line));
    button->setAccessibleName(qs(line));
    button->show();
}

void MainWindow::showWindow() {
    show();
    raise();
    activateWindow();
}

void MainWindow::makeKeyAndOrderFront() {
    if (isMinimized())
        showNormal();
    showWindow();
}

void MainWindow::setDropsEnabled(bool enabled) {
    m_dropsEnabled = enabled;
    m_scanPage->dropZone()->setDropsEnabled(enabled);
}

AlertChoice MainWindow::runModalAlert(const std::string& message, const std::string& informative,
                                      const std::string& defaultButton, const std::string& alternateButton) {
    QMessageBox box(this);
    box.setIcon(QMessageBox::Warning);
    box.setText(qs(message));
    box.setInformativeText(qs(informative));
    QPushButton* def = box.addButton(qs(defaultButton), QMessageBox::AcceptRole);
    QPushButton* alt = box.addButton(qs(alternateButton), QMessageBox::RejectRole);
    box.setDefaultButton(def);
    // The default keeps things as they are; without this, Escape would press the
    // alternate (the reject role) and throw the results away.
    box.setEscapeButton(def);
    box.exec();
    return box.clickedButton() == alt ? AlertChoice::Alternate : AlertChoice::Default;
}

void MainWindow::showOpenPanel(const std::string& prompt,
                               std::function<void(std::optional<std::vector<std::string>>)> completion) {
    auto* dialog = new QFileDialog(this, windowText("OpenPanel_Title"));
    dialog->setObjectName("openPanel");
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly, true);
    dialog->setLabelText(QFileDialog::Accept, qs(prompt));
    dialog->setWindowModality(Qt::WindowModal);
    auto done = std::make_shared<bool>(false);
    connect(dialog, &QFileDialog::finished, this, [this, dialog, completion, done](int result) {
        if (*done)
            return;
        *done = true;
        if (result != QDialog::Accepted) {
            completion(std::nullopt);
            return;
        }
        std::vector<std::string> paths;
        for (const QString& file : dialog->selectedFiles())
            paths.push_back(QFile::encodeName(file).toStdString());
        m_scanPage->dropZone()->rememberBatch(paths);
        completion(paths);
    });
    dialog->open();
}

void MainWindow::clearSearchField() {
    if (m_clearSearch)
        m_clearSearch();
}

void MainWindow::makeSearchFieldKey() {
    if (m_focusSearch)
        m_focusSearch();
}

void MainWindow::closeQuickLook() {
    if (m_closeQuickLook)
        m_closeQuickLook();
}

void MainWindow::showResultsContent(ResultsViewRole& results, WindowSize minSize,
                                    std::function<void()> done) {
    QWidget* widget = m_resultsWidgetFor ? m_resultsWidgetFor(results) : nullptr;
    if (widget != m_resultsWidget) {
        if (m_resultsWidget)
            m_stack->removeWidget(m_resultsWidget);
        m_resultsWidget = widget;
        if (widget)
            m_stack->addWidget(widget);
    }
    if (m_resultsWidget)
        m_stack->setCurrentWidget(m_resultsWidget);
    setMinimumSize(static_cast<int>(minSize.width), static_cast<int>(minSize.height));
    setMaximumSize(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);
    QRect bounds;
    if (auto stored = m_defaults.stringForKey(kResultsWindowBoundsKey)) {
        const QStringList parts = qs(*stored).split(' ');
        if (parts.size() == 4)
            bounds = QRect(parts[0].toInt(), parts[1].toInt(), parts[2].toInt(), parts[3].toInt());
    }
    if (bounds.width() >= minSize.width && bounds.height() >= minSize.height)
        setGeometry(bounds);
    else
        resize(std::max(1100, static_cast<int>(minSize.width)),
               std::max(700, static_cast<int>(minSize.height)));
    QTimer::singleShot(0, this, [done = std::move(done)] { done(); });
}

void MainWindow::saveResultsBounds() {
    const QRect g = geometry();
    m_defaults.setObject(
        PropertyValue(
            QString("%1 %2 %3 %4").arg(g.x()).arg(g.y()).arg(g.width()).arg(g.height()).toStdString()),
        kResultsWindowBoundsKey);
}

void MainWindow::showScanContent() {
    if (showingResults())
        saveResultsBounds();
    m_stack->setCurrentWidget(m_scanPage);
    useScanSize();
}

void MainWindow::useScanSize() {
    setMinimumSize(0, 0);
    setMaximumSize(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);
    resize(kScanWidth, kScanHeight);
    setFixedSize(kScanWidth, kScanHeight);
}

void MainWindow::closeEvent(QCloseEvent* event) {
    if (showingResults())
        saveResultsBounds();
    if (m_closeHandler && !m_closeHandler()) {
        event->ignore();
        return;
    }
    event->accept();
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (m_dropsEnabled && !showingResults() && !DropZone::foldersInMimeData(event->mimeData()).empty())
        event->acceptProposedAction();
    else
        event->ignore();
}

void MainWindow::dropEvent(QDropEvent* event) {
    const auto folders = DropZone::foldersInMimeData(event->mimeData());
    if (!m_dropsEnabled || showingResults() || folders.empty() || !m_controller) {
        event->ignore();
        return;
    }
    event->acceptProposedAction();
    m_scanPage->dropZone()->rememberBatch(folders);
    m_controller->scanControl().addFoldersForScan(folders, false);
}

} // namespace corvel::gui

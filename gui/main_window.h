#pragma once
// MainWindow: the one window of the application, the Qt face of CVScanWindowController
// (ScanWindowView). It holds the scan page and, once results are shown, the results page
// the results faces made; the scan page keeps a fixed size, the results page is resizable
// with its frame kept under "ResultsWindowBounds". Buttons call the scan window
// controller; closing the window asks the quit handler. GUI thread.

#include <QMainWindow>
#include <QPointer>
#include <QStackedWidget>
#include <QTimer>
#include <functional>

#include "app/scan_window_view.h"
#include "scan_page.h"

namespace corvel {
class CVScanWindowController;
class UserDefaults;
} // namespace corvel

namespace corvel::gui {

inline constexpr const char* kResultsWindowBoundsKey = "ResultsWindowBounds";

class MainWindow final : public QMainWindow, public ScanWindowView {
public:
    // The scan view's fixed size.
    static constexpr int kScanWidth = 720;
    static constexpr int kScanHeight = 620;

    explicit MainWindow(UserDefaults& defaults, QWidget* parent = nullptr);
    ~MainWindow() override;

    // Not owned; the buttons act on it.
    void setController(CVScanWindowController* controller);
    // Answers the widget that shows a results view (made by the results faces).
    void setResultsWidgetProvider(std::function<QWidget*(ResultsViewRole&)> provider) {
        m_resultsWidgetFor = std::move(provider);
    }
    // Asked when the user closes the window; true lets it close.
    void setCloseHandler(std::function<bool()> handler) { m_closeHandler = std::move(handler); }
    // The search field of the results page, cleared and focused on request.
    void setSearchHandlers(std::function<void()> clear, std::function<void()> focus) {
        m_clearSearch = std::move(clear);
        m_focusSearch = std::move(focus);
    }
    void setQuickLookCloser(std::function<void()> closer) { m_closeQuickLook = std::move(closer); }

    ScanPage* scanPage() const { return m_scanPage; }
    bool showingResults() const { return m_stack->currentWidget() != m_scanPage; }
    // The collector button's text while bound.
    void refreshCollectorButton();

    // ScanWindowView.
    void setStatus(const std::string& text) override;
    void setSubStatus(const std::string& text) override;
    void setStatusAnimationTime(double /*seconds*/) override {}
    void setStartButtonHidden(bool hidden) override;
    void setPlusButtonHidden(bool hidden) override;
    void setStopButton(const std::string& title, const std::string& toolTip,
                       StopButtonAction action) override;
    void setStopButtonHidden(bool hidden) override;
    void setResultsButton(const std::string& title, const std::string& toolTip) override;
    void setResultsButtonHidden(bool hidden) override;
    void setResultsButtonEnabled(bool enabled) override;
    void bindCollectorButton(CollectorRole& collector) override;
    void unbindCollectorButton() override;
    void showWindow() override;
    bool isVisible() const override { return QMainWindow::isVisible(); }
    bool isKeyWindow() const override { return isActiveWindow(); }
    bool isMiniaturized() const override { return isMinimized(); }
    void makeKeyAndOrderFront() override;
    void setDropsEnabled(bool enabled) override;
    void clearUndoActions() override {}
    AlertChoice runModalAlert(const std::string& message, const std::string& informative,
                              const std::string& defaultButton, const std::string& alternateButton) override;
    void showOpenPanel(const std::string& prompt,
                       std::function<void(std::optional<std::vector<std::string>>)> completion) override;
    void clearSearchField() override;
    void makeSearchFieldKey() override;
    void closeQuickLook() override;
    bool isFullScreen() const override { return QMainWindow::isFullScreen(); }
    void exitFullScreen() override { showNormal(); }
    void showResultsContent(ResultsViewRole& results, WindowSize minSize,
                            std::function<void()> done) override;
    void showScanContent() override;

protected:
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void useScanSize();
    void saveResultsBounds();

    UserDefaults& m_defaults;
    CVScanWindowController* m_controller = nullptr;
    QStackedWidget* m_stack;
    ScanPage* m_scanPage;
    // The results page; it goes with its results view, so it is watched, not owned.
    QPointer<QWidget> m_resultsWidget;
    StopButtonAction m_stopAction = StopButtonAction::CancelScan;
    CollectorRole* m_collector = nullptr;
    QTimer m_collectorTimer;
    bool m_dropsEnabled = true;
    std::function<QWidget*(ResultsViewRole&)> m_resultsWidgetFor;
    std::function<bool()> m_closeHandler;
    std::function<void()> m_clearSearch, m_focusSearch, m_closeQuickLook;
};

} // namespace corvel::gui

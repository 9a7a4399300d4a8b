#pragma once
// AppShell: the application object's face for CorvelAppDelegate (AppShellView): the quit
// sheet (a window-modal message box on the main window), quitting, the browser, the
// application icon, the debug menu, and the about and preferences windows. Quitting
// always goes through quitRequested, which asks the delegate. GUI thread.

#include <QIcon>
#include <QMessageBox>
#include <QObject>
#include <QPointer>
#include <functional>
#include <memory>

#include "app/app_shell_view.h"

class QMenuBar;
class QWidget;

namespace corvel {
class CorvelAppDelegate;
}

namespace corvel::gui {

class AppShell final : public QObject, public AppShellView {
public:
    // window: the main window the sheet goes on (not owned).
    explicit AppShell(QWidget* window, QObject* parent = nullptr);

    // Not owned; set once it exists.
    void setDelegate(CorvelAppDelegate* delegate) { m_delegate = delegate; }
    void setMenuBar(QMenuBar* menuBar) { m_menuBar = menuBar; }
    // Makes the windows of the preferences and the about panel on first need.
    void setPanelMakers(std::function<QWidget*()> about, std::function<QWidget*()> preferences) {
        m_makeAbout = std::move(about);
        m_makePreferences = std::move(preferences);
    }
    // Runs when the delegate agreed to quit (default: QCoreApplication::quit).
    void setQuitAction(std::function<void()> action) { m_quit = std::move(action); }

    // The user asked to quit (menu, window close): asks the delegate; true when the
    // application quits now.
    bool quitRequested();
    // The quit sheet when one is up (tests answer it).
    QMessageBox* quitSheet() const { return m_quitSheet; }
    QWidget* aboutPanel() const { return m_about; }
    QWidget* preferencesWindow() const { return m_preferences; }

    // AppShellView.
    void showQuitSheet(const std::string& message, const std::string& informative,
                       const std::string& defaultButton, const std::string& alternateButton,
                       std::function<void(AlertChoice)> completion) override;
    void terminate() override;
    void setApplicationIcon(const std::string& imageName) override;
    void addDebugMenu() override;
    void updateDynamicServices() override {}
    bool openURL(const std::string& url) override;
    bool isRatingPromptShown() const override { return false; }
    void showAboutPanel() override;
    void showPreferences() override;
    void openFeedbackWindow() override {}
    void openRatingsPage() override {}
    void showAnalyticsWindow() override {}

private:
    QWidget* m_window;
    CorvelAppDelegate* m_delegate = nullptr;
    QMenuBar* m_menuBar = nullptr;
    QPointer<QMessageBox> m_quitSheet;
    QPointer<QWidget> m_about;
    QPointer<QWidget> m_preferences;
    std::function<QWidget*()> m_makeAbout, m_makePreferences;
    std::function<void()> m_quit;
    bool m_quitting = false;
};

// The application icon: the SVG in the resources, the theme's "corvel" icon first.
QIcon applicationIcon();

} // namespace corvel::gui

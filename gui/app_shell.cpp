#include "app_shell.h"

#include <QApplication>
#include <QDesktopServices>
#include <QFile>
#include <QMenuBar>
#include <QPushButton>
#include <QUrl>

#include "app/app_delegate.h"
#include "gui_text.h"
#include "platform/resources.h"

namespace corvel::gui {

QIcon applicationIcon() {
    const QString file = QString::fromStdString(resourcePath("icons/corvel.svg"));
    return QIcon::fromTheme("corvel", QIcon(file));
}

AppShell::AppShell(QWidget* window, QObject* parent) : QObject(parent), m_window(window) {}

bool AppShell::quitRequested() {
    if (!m_delegate || m_quitting)
        return true;
    if (m_delegate->applicationShouldTerminate() != TerminateReply::TerminateNow)
        return false;
    m_quitting = true;
    m_delegate->applicationWillTerminate();
    if (m_quit)
        m_quit();
    else
        QCoreApplication::quit();
    return true;
}

void AppShell::showQuitSheet(const std::string& message, const std::string& informative,
                             const std::string& defaultButton, const std::string& alternateButton,
                             std::function<void(AlertChoice)> completion) {
    auto* box = new QMessageBox(m_window);
    box->setObjectName("quitSheet");
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setIcon(QMessageBox::Warning);
    box->setWindowTitle(windowText("Window_Title"));
    box->setText(qs(message));
    box->setInformativeText(qs(informative));
    QPushButton* cont = box->addButton(qs(defaultButton), QMessageBox::RejectRole);
    box->addButton(qs(alternateButton), QMessageBox::DestructiveRole);
    box->setDefaultButton(cont);
    box->setEscapeButton(cont);
    box->setWindowModality(Qt::WindowModal);
    m_quitSheet = box;
    connect(box, &QMessageBox::finished, this, [box, cont, completion = std::move(completion)] {
        // Escape or closing the sheet counts as the default: the scan goes on.
        const bool quit = box->clickedButton() && box->clickedButton() != cont;
        completion(quit ? AlertChoice::Alternate : AlertChoice::Default);
    });
    box->open();
}

void AppShell::terminate() {
    // Asked again after the quit sheet: outside the sheet's own signal handling.
    QMetaObject::invokeMethod(
        this, [this] { quitRequested(); }, Qt::QueuedConnection);
}

void AppShell::setApplicationIcon(const std::string& imageName) {
    const QString file = QString::fromStdString(resourcePath("icons/" + imageName + ".svg"));
    if (QFile::exists(file))
        QApplication::setWindowIcon(QIcon(file));
}

void AppShell::addDebugMenu() {
    if (!m_menuBar)
        return;
    QMenu* debug = m_menuBar->addMenu(windowText("Menu_Debug"));
    QAction* analytics = debug->addAction(windowText("Menu_Analytics"));
    // Nothing is recorded on Linux, so there is nothing to show.
    analytics->setEnabled(false);
}

bool AppShell::openURL(const std::string& url) {
    return QDesktopServices::openUrl(QUrl(qs(url)));
}

void AppShell::showAboutPanel() {
    if (!m_about && m_makeAbout)
        m_about = m_makeAbout();
    if (m_about) {
        m_about->show();
        m_about->raise();
        m_about->activateWindow();
    }
}

void AppShell::showPreferences() {
    if (!m_preferences && m_makePreferences)
        m_preferences = m_makePreferences();
    if (m_preferences) {
        m_preferences->show();
        m_preferences->raise();
        m_preferences->activateWindow();
    }
}

} // namespace corvel::gui

// corvel-screenshots OUT_DIR TREE: renders every page and panel of the desktop
// application to PNG files in OUT_DIR, scanning TREE (the demo tree) for real. It runs
// with a home, configuration and settings file of its own under the temporary folder,
// so the user's settings are never read or written. Meant for the offscreen platform
// (QT_QPA_PLATFORM=offscreen), where the main window is 1280x800 at most.

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QLinearGradient>
#include <QMessageBox>
#include <QPainter>
#include <QPdfWriter>
#include <QPixmap>
#include <QPushButton>
#include <QTabWidget>
#include <QTimer>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "app/app_delegate.h"
#include "app/scan_window_controller.h"
#include "app_shell.h"
#include "collector_panel.h"
#include "engine/group.h"
#include "event_wait.h"
#include "gui_application.h"
#include "main_window.h"
#include "platform/main_queue.h"
#include "platform/user_defaults.h"
#include "preferences_window.h"
#include "private_home.h"
#include "results/duplicates_controller.h"
#include "results_page.h"

using namespace corvel;
using namespace corvel::gui;

namespace {

bool waitFor(const std::function<bool()>& condition, int timeoutMs) {
    return processEventsUntil(condition, timeoutMs, 10);
}

void settle() {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 150)
        QApplication::processEvents(QEventLoop::AllEvents, 10);
}

bool save(QWidget* widget, const QString& folder, const char* name) {
    settle();
    const QString path = folder + "/" + name + ".png";
    const bool ok = widget->grab().save(path);
    std::fprintf(stderr, "%s %s\n", ok ? "wrote" : "could not write", qPrintable(path));
    return ok;
}

// A real picture and its copy, so the preview pane has an image to show.
void writePicturePair(const std::string& tree) {
    QImage image(640, 420, QImage::Format_RGB32);
    QPainter painter(&image);
    QLinearGradient sky(0, 0, 0, 420);
    sky.setColorAt(0, QColor(40, 90, 160));
    sky.setColorAt(0.6, QColor(250, 190, 120));
    sky.setColorAt(1, QColor(30, 60, 90));
    painter.fillRect(image.rect(), sky);
    painter.setBrush(QColor(255, 230, 150));
    painter.setPen(Qt::NoPen);
    painter.drawEllipse(QPoint(420, 250), 60, 60);
    painter.fillRect(QRect(0, 300, 640, 120), QColor(20, 50, 80));
    painter.end();
    image.save(QString::fromStdString(tree + "/Pictures/Holiday/harbour.png"));
    image.save(QString::fromStdString(tree + "/Downloads/harbour.png"));
}

// A one-page letter and its copy, so the preview pane has a PDF page to show.
void writePdfPair(const std::string& tree) {
    const QString first = QString::fromStdString(tree + "/Documents/Reports/quarterly-letter.pdf");
    {
        QPdfWriter writer(first);
        writer.setPageSize(QPageSize(QPageSize::A4));
        writer.setResolution(72);
        writer.setCreator("corvel-screenshots");
        QPainter painter(&writer);
        painter.fillRect(QRect(40, 40, 515, 70), QColor(40, 90, 160));
        painter.setPen(Qt::white);
        painter.setFont(QFont("DejaVu Sans", 26, QFont::Bold));
        painter.drawText(QRect(60, 40, 480, 70), Qt::AlignVCenter, "Quarterly letter");
        painter.setPen(QColor(60, 60, 60));
        painter.setFont(QFont("DejaVu Sans", 12));
        for (int line = 0; line < 18; ++line)
            painter.fillRect(QRect(60, 150 + line * 28, line % 6 == 5 ? 300 : 470, 10),
                             QColor(190, 190, 190));
        painter.fillRect(QRect(60, 680, 220, 110), QColor(247, 147, 30));
        painter.fillRect(QRect(310, 720, 220, 70), QColor(136, 201, 48));
    }
    QFile::copy(first, QString::fromStdString(tree + "/Downloads/quarterly-letter.pdf"));
}

// The group whose first member is called name, as the groups table shows it.
int rowOfGroup(ResultsPage* page, const std::string& name) {
    for (int row = 0; row < page->groupsModel()->rowCount(); ++row)
        if (page->groupsModel()->groupAt(row)->name() == name)
            return row;
    return -1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: corvel-screenshots OUT_DIR TREE\n");
        return 2;
    }
    // A private home for this run: nothing of the user's is read or written.
    const std::string home = makePrivateHome("corvel-screenshots");
    if (home.empty()) {
        std::fprintf(stderr, "corvel-screenshots: cannot make a private home\n");
        return 1;
    }
    MainQueue::shared().setMainThread();
    QApplication app(argc, argv);
    QApplication::setFont(QFont("DejaVu Sans", 10));
    const QString out = QString::fromLocal8Bit(argv[1]);
    QDir().mkpath(out);
    const std::string tree = argv[2];
    writePicturePair(tree);
    writePdfPair(tree);
    int failures = 0;
    auto shot = [&](QWidget* w, const char* name) { failures += save(w, out, name) ? 0 : 1; };

    GuiApplication gui({QString::fromStdString(home + "/corvel-gui.socket"), {}, {}});
    gui.start();
    MainWindow& window = gui.window();
    shot(&window, "scan");

    gui.delegate().checkAndAddFoldersForScan({tree + "/Pictures", tree + "/Downloads", tree + "/Documents"});
    shot(&window, "scan-folders");

    // The scan of the tree itself; the picture is taken as soon as it runs.
    gui.delegate().scanWindowController()->startScanAction(false);
    waitFor([&] { return gui.delegate().scanWindowController()->windowState() != WindowStateIdle; }, 5000);
    shot(&window, "scanning");
    if (!waitFor([&] { return gui.delegate().scanWindowController()->windowState() >= WindowStateFound; },
                 60000)) {
        std::fprintf(stderr, "corvel-screenshots: the scan did not end\n");
        return 1;
    }
    shot(&window, "found");

    gui.delegate().showAboutPanel();
    shot(gui.shell().aboutPanel(), "about");
    gui.shell().aboutPanel()->close();

    gui.delegate().showPreferences();
    auto* prefs = dynamic_cast<PreferencesWindow*>(gui.shell().preferencesWindow());
    const char* tabs[] = {"preferences-general", "preferences-ignore", "preferences-selection"};
    for (int i = 0; i < 3; ++i) {
        prefs->tabs()->setCurrentIndex(i);
        shot(prefs, tabs[i]);
    }
    prefs->close();

    // The quit sheet, as it shows over a running scan.
    gui.delegate().updateMainWindowState(WindowStateScanning);
    gui.shell().setQuitAction([] {});
    gui.shell().quitRequested();
    if (QMessageBox* sheet = gui.shell().quitSheet()) {
        shot(sheet, "quit-sheet");
        sheet->defaultButton()->click();
    }
    settle();
    gui.delegate().updateMainWindowState(WindowStateFound);

    // The results at 1280x800, auto-selected, with a picture group chosen.
    CVScanWindowController* scan = gui.delegate().scanWindowController();
    UserDefaults::standardUserDefaults().setObject(PropertyValue("0 0 1280 800"), kResultsWindowBoundsKey);
    scan->showResults(true);
    if (!waitFor([&] { return scan->windowState() == WindowStateResults; }, 5000) || !gui.resultsPage()) {
        std::fprintf(stderr, "corvel-screenshots: the results did not show\n");
        return 1;
    }
    ResultsPage* page = gui.resultsPage();
    page->autoSelectButton()->click();
    waitFor([&] { return page->reviewButton()->isEnabled(); }, 5000);
    if (const int row = rowOfGroup(page, "harbour"); row >= 0)
        page->groupsTable()->selectRow(row);
    shot(&window, "results");
    if (const int row = rowOfGroup(page, "quarterly-letter"); row >= 0) {
        page->groupsTable()->selectRow(row);
        shot(&window, "results-pdf");
    }
    if (const int row = rowOfGroup(page, "harbour"); row >= 0)
        page->groupsTable()->selectRow(row);

    // The collector, then the removal to this run's own Trash.
    CollectorPanel* collector = page->collectorPanel();
    page->reviewButton()->click();
    waitFor([&] { return page->collectorShown(); }, 5000);
    shot(&window, "collector");
    collector->removeButton()->click();
    if (!waitFor([&] { return collector->page() != CollectorPanel::Page::List; }, 60000)) {
        std::fprintf(stderr, "corvel-screenshots: the removal did not end\n");
        return 1;
    }
    shot(&window, "success");
    collector->doneButton()->click();
    // The removed copies leave the results once the collector has closed.
    waitFor([&] { return !page->collectorShown() && scan->windowState() == WindowStateResults; }, 5000);
    settle();

    // A removal that fails: the second copy of every group ticked by hand.
    // A question asked on the way (every copy of a group marked) is answered "keep".
    QTimer answerer;
    answerer.setInterval(200);
    QObject::connect(&answerer, &QTimer::timeout, [] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget()))
            box->reject();
    });
    answerer.start();
    for (int row = 0; row < page->groupsModel()->rowCount(); ++row) {
        const auto group = page->groupsModel()->groupAt(row);
        if (group->filesToRemoveCount() != 0 || group->existentChildren().size() < 2)
            continue;
        page->groupsTable()->selectRow(row);
        page->filesModel()->setData(page->filesModel()->index(1, FilesModel::Name), Qt::Checked,
                                    Qt::CheckStateRole);
    }
    waitFor([&] { return page->reviewButton()->isEnabled(); }, 5000);
    // One marked copy is replaced by another file of the same name after the scan: the
    // pass refuses to remove what it did not compare.
    std::string replaced;
    if (auto results = scan->duplicatesFinder()->duplicatesController())
        for (const auto& group : results->allDuplicatesGroups())
            for (const auto& file : group->files())
                if (replaced.empty() && file->needToRemove())
                    replaced = file->path();
    if (!replaced.empty()) {
        const std::string aside = replaced + ".replacing";
        std::error_code ignored;
        std::filesystem::copy_file(replaced, aside, ignored);
        std::filesystem::rename(aside, replaced, ignored);
    }
    page->reviewButton()->click();
    waitFor([&] { return page->collectorShown(); }, 5000);
    collector->removeButton()->click();
    waitFor([&] { return collector->page() != CollectorPanel::Page::List; }, 60000);
    shot(&window, collector->page() == CollectorPanel::Page::Errors ? "errors" : "errors-not-shown");
    std::error_code ignored;
    std::filesystem::remove_all(home, ignored); // the private home, with the Trash the pass filled
    return failures == 0 ? 0 : 1;
}

// Keyboard and screen-reader audit of every page and panel of the desktop application,
// on the offscreen platform: the scan page (empty and with folders), the results, the
// collector, the success and error views, the preferences' tabs and the about panel.
// On each, every visible control must have an accessible name (its own, or a text that
// serves as one) and be reached by Tab, each Tab press leaving the control it was in
// (a table that moved from cell to cell would hold the keyboard user there).

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QAbstractSlider>
#include <QAbstractSpinBox>
#include <QAccessible>
#include <QApplication>
#include <QComboBox>
#include <QHeaderView>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollBar>
#include <QTabBar>
#include <QTabWidget>
#include <QTableWidget>
#include <QTest>
#include <QTextEdit>
#include <QTimer>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>

#include "app/app_delegate.h"
#include "app/results_view_controller.h"
#include "app/scan_window_controller.h"
#include "app_shell.h"
#include "collector_panel.h"
#include "gui_application.h"
#include "main_window.h"
#include "preferences_window.h"
#include "results/duplicates_controller.h"
#include "results_page.h"
#include "scan_page.h"
#include "settings/preferences.h"
#include "support/temp_tree.h"
#include "trash_inside.h"

using namespace corvel;
using namespace corvel::gui;
namespace fs = std::filesystem;

namespace {

// What a user operates: buttons, lists and tables, text fields, menus of choices,
// spin boxes, sliders, tabs. Parts of another control (a table's header and corner, a
// field's clear button, a combo box's or spin box's own field, scroll bars) are reached
// through that control.
bool isControl(QWidget* w) {
    QWidget* parent = w->parentWidget();
    if (qobject_cast<QScrollBar*>(w) || qobject_cast<QHeaderView*>(w))
        return false;
    if (parent && (qobject_cast<QAbstractItemView*>(parent) || qobject_cast<QLineEdit*>(parent) ||
                   qobject_cast<QComboBox*>(parent) || qobject_cast<QAbstractSpinBox*>(parent) ||
                   qobject_cast<QTabBar*>(parent)))
        return false;
    if (w->focusProxy())
        return false;
    return qobject_cast<QAbstractButton*>(w) || qobject_cast<QAbstractItemView*>(w) ||
           qobject_cast<QLineEdit*>(w) || qobject_cast<QComboBox*>(w) || qobject_cast<QAbstractSpinBox*>(w) ||
           qobject_cast<QAbstractSlider*>(w) || qobject_cast<QPlainTextEdit*>(w) ||
           qobject_cast<QTextEdit*>(w) || qobject_cast<QTabBar*>(w);
}

QString describe(QWidget* w) {
    return QString("%1 \"%2\"").arg(w->metaObject()->className(), w->objectName());
}

std::vector<QWidget*> visibleControls(QWidget* root) {
    std::vector<QWidget*> controls;
    for (QWidget* w : root->findChildren<QWidget*>())
        if (w->isVisible() && isControl(w))
            controls.push_back(w);
    return controls;
}

QString accessibleNameOf(QWidget* w) {
    QAccessibleInterface* face = QAccessible::queryAccessibleInterface(w);
    return face ? face->text(QAccessible::Name).trimmed() : QString();
}

// The control a focused widget belongs to (itself, or the control it is a part of).
QWidget* controlOf(QWidget* focused, const std::set<QWidget*>& controls) {
    for (QWidget* w = focused; w; w = w->parentWidget())
        if (controls.contains(w))
            return w;
    return focused;
}

// Buttons side by side must be reached by Tab from left to right: within each row of
// buttons, the Tab order (once round, so wrapping from the last control to the first
// counts once) may step leftwards only once.
QStringList rightToLeftRows(const std::vector<QWidget*>& cycle, const char* page) {
    std::map<std::pair<QWidget*, int>, std::vector<QWidget*>> rows; // (parent, top) -> buttons in Tab order
    for (QWidget* w : cycle)
        if (qobject_cast<QPushButton*>(w) && w->isVisible())
            rows[{w->parentWidget(), w->mapTo(w->window(), QPoint(0, 0)).y() / 8}].push_back(w);
    QStringList problems;
    for (const auto& [where, buttons] : rows) {
        if (buttons.size() < 2)
            continue;
        std::size_t leftwards = 0;
        for (std::size_t i = 0; i < buttons.size(); ++i) {
            QWidget* from = buttons[i];
            QWidget* to = buttons[(i + 1) % buttons.size()];
            leftwards +=
                to->mapTo(to->window(), QPoint(0, 0)).x() < from->mapTo(from->window(), QPoint(0, 0)).x();
        }
        if (leftwards > 1)
            problems
                << QString("%1: Tab goes right to left along the row of %2").arg(page, describe(buttons[0]));
    }
    return problems;
}

// The problems of one page: controls without a name, controls Tab does not reach or
// does not leave, rows of buttons Tab goes through from right to left.
QStringList audit(QWidget* root, const char* page) {
    QStringList problems;
    const std::vector<QWidget*> controls = visibleControls(root);
    if (controls.empty())
        problems << QString("%1: no controls found").arg(page);
    std::set<QWidget*> expected;
    for (QWidget* w : controls) {
        if (accessibleNameOf(w).isEmpty())
            problems << QString("%1: %2 has no accessible name").arg(page, describe(w));
        if (w->isEnabled() && (w->focusPolicy() & Qt::TabFocus))
            expected.insert(w);
        else if (w->isEnabled())
            problems << QString("%1: %2 cannot be reached by Tab").arg(page, describe(w));
    }
    if (expected.empty())
        return problems;

    QWidget* window = root->window();
    window->activateWindow();
    QApplication::setActiveWindow(window);
    if (!QTest::qWaitForWindowActive(window))
        return problems << QString("%1: the window could not be activated").arg(page);
    QWidget* start = *expected.begin();
    start->setFocus(Qt::TabFocusReason);
    std::set<QWidget*> reached{controlOf(QApplication::focusWidget(), expected)};
    QWidget* previous = controlOf(QApplication::focusWidget(), expected);
    std::vector<QWidget*> cycle{previous}; // the controls in Tab order, once round
    for (std::size_t press = 0; press < expected.size() * 2 + 4; ++press) {
        QWidget* focused = QApplication::focusWidget();
        if (!focused)
            break;
        QTest::keyClick(focused, Qt::Key_Tab);
        QWidget* now = controlOf(QApplication::focusWidget(), expected);
        if (now == previous && expected.size() > 1) {
            problems << QString("%1: Tab stays in %2").arg(page, describe(now));
            break;
        }
        if (!reached.contains(now) && cycle.front() != now)
            cycle.push_back(now);
        reached.insert(now);
        previous = now;
    }
    problems << rightToLeftRows(cycle, page);
    // Tab reaches one button of a set of exclusive radio buttons; the arrows choose among them.
    auto reachedThroughItsSet = [&](QWidget* w) {
        auto* radio = qobject_cast<QRadioButton*>(w);
        if (!radio || !radio->autoExclusive())
            return false;
        for (QWidget* other : reached)
            if (qobject_cast<QRadioButton*>(other) && other->parentWidget() == w->parentWidget())
                return true;
        return false;
    };
    for (QWidget* w : expected)
        if (!reached.contains(w) && !reachedThroughItsSet(w))
            problems << QString("%1: Tab never reaches %2").arg(page, describe(w));
    return problems;
}

} // namespace

class AccessibilityTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void everyPageNamesItsControlsAndTabReachesThem();
    void theAuditFindsAnUnnamedOrUnreachableControl();
};

void AccessibilityTest::everyPageNamesItsControlsAndTabReachesThem() {
    test::TempTree tree;
    const std::string picture(60000, 'p');
    tree.file("a/photo.jpg", picture);
    tree.file("b/photo copy.jpg", picture);
    tree.file("a/report.txt", std::string(70000, 'd'));
    const std::string reportCopy = tree.file("b/report copy.txt", std::string(70000, 'd'));
    test::TrashInside trash(tree);
    CVPreferences::sharedInstance().setMoveDuplicatesToTrash(true);
    GuiApplication app({QString::fromStdString(tree / "corvel-gui.socket"), {}, {}});
    app.start();
    MainWindow& window = app.window();
    QStringList problems;

    problems << audit(&window, "scan page");
    app.delegate().checkAndAddFoldersForScan({tree / "a", tree / "b"});
    QTRY_VERIFY(!window.scanPage()->startButton()->isHidden());
    problems << audit(&window, "scan page with folders");

    CVScanWindowController* scan = app.delegate().scanWindowController();
    scan->startScanAction(false);
    QTRY_COMPARE_WITH_TIMEOUT(scan->windowState(), std::int32_t(WindowStateFound), 20000);
    problems << audit(&window, "scan page, found");
    scan->showResults(true);
    QTRY_COMPARE(scan->windowState(), std::int32_t(WindowStateResults));
    ResultsPage* page = app.resultsPage();
    QVERIFY(page);
    page->groupsTable()->selectRow(0);
    problems << audit(&window, "results");
    page->autoSelectButton()->click();
    QTRY_VERIFY(page->reviewButton()->isEnabled());

    // The report's copy stays for the second pass; the picture's goes in the first.
    std::shared_ptr<CVFile> report;
    for (const auto& group : scan->duplicatesFinder()->duplicatesController()->allDuplicatesGroups())
        for (const auto& file : group->files())
            if (file->path() == reportCopy)
                report = file;
    QVERIFY(report && report->needToRemove());
    page->results()->switchFileSelectionAction(report);
    QVERIFY(!report->needToRemove());

    page->reviewButton()->click();
    QTRY_VERIFY(page->collectorShown());
    CollectorPanel* collector = page->collectorPanel();
    problems << audit(&window, "collector");
    collector->removeButton()->click();
    QTRY_VERIFY_WITH_TIMEOUT(collector->page() != CollectorPanel::Page::List, 20000);
    QCOMPARE(collector->page(), CollectorPanel::Page::Success);
    problems << audit(&window, "success");
    collector->doneButton()->click();
    QTRY_VERIFY(!page->collectorShown());
    QTRY_COMPARE(scan->windowState(), std::int32_t(WindowStateResults));

    // The report's copy marked and then replaced on disk: the pass refuses it.
    page->results()->switchFileSelectionAction(report);
    QTRY_VERIFY(page->reviewButton()->isEnabled());
    fs::rename(tree.file("b/replacement.txt", std::string(70000, 'd')), reportCopy);
    page->reviewButton()->click();
    QTRY_VERIFY(page->collectorShown());
    collector->removeButton()->click();
    QTRY_VERIFY_WITH_TIMEOUT(collector->page() != CollectorPanel::Page::List, 20000);
    QCOMPARE(collector->page(), CollectorPanel::Page::Errors);
    problems << audit(&window, "errors");
    collector->doneButton()->click();

    app.delegate().showPreferences();
    auto* prefs = dynamic_cast<PreferencesWindow*>(app.shell().preferencesWindow());
    QVERIFY(prefs);
    QTRY_VERIFY(prefs->isVisible());
    for (int tab = 0; tab < prefs->tabs()->count(); ++tab) {
        prefs->tabs()->setCurrentIndex(tab);
        problems << audit(prefs, qPrintable("preferences, " + prefs->tabs()->tabText(tab)));
    }
    prefs->close();

    app.delegate().showAboutPanel();
    QTRY_VERIFY(app.shell().aboutPanel() && app.shell().aboutPanel()->isVisible());
    problems << audit(app.shell().aboutPanel(), "about");
    app.shell().aboutPanel()->close();

    QVERIFY2(problems.isEmpty(), qPrintable("\n" + problems.join("\n")));
}

// The audit itself: a button with neither text nor name, a field Tab skips and a table
// that keeps Tab for its cells are each reported; a named button is not.
void AccessibilityTest::theAuditFindsAnUnnamedOrUnreachableControl() {
    QWidget page;
    auto* named = new QPushButton("Start", &page);
    auto* blank = new QPushButton(&page);
    blank->setObjectName("blankButton");
    blank->move(0, 40);
    auto* field = new QLineEdit(&page);
    field->setObjectName("skippedField");
    field->setAccessibleName("Search");
    field->setFocusPolicy(Qt::ClickFocus);
    field->move(0, 80);
    auto* table = new QTableWidget(3, 3, &page);
    table->setObjectName("cellTable");
    table->setAccessibleName("Cells");
    table->move(0, 120);
    page.resize(300, 300);
    page.show();
    QVERIFY(QTest::qWaitForWindowExposed(&page));
    const QStringList problems = audit(&page, "test");
    QVERIFY2(problems.filter("blankButton").filter("no accessible name").size() == 1,
             qPrintable(problems.join("\n")));
    QVERIFY2(problems.filter("skippedField").size() == 1, qPrintable(problems.join("\n")));
    QVERIFY2(problems.filter("Tab stays in QTableWidget \"cellTable\"").size() == 1,
             qPrintable(problems.join("\n")));
    QVERIFY(problems.filter("Start").isEmpty());
    Q_UNUSED(named);
}

QTEST_MAIN(AccessibilityTest)
#include "accessibility_test.moc"

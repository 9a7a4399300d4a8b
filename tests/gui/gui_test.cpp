// The desktop application driven as a user would, on the offscreen platform: folders
// dropped on the drop zone and scanned, the quit sheet, folders handed over by a second
// launch, and the preferences written to the settings file. Every test program runs in
// its own home and settings file (support/isolated_environment.cpp).

#include <QAbstractButton>
#include <QApplication>
#include <QDropEvent>
#include <QLocalServer>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QUrl>
#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <thread>

#include "app/app_delegate.h"
#include "app/results_view_controller.h"
#include "app/scan_window_controller.h"
#include "app_shell.h"
#include "background_release.h"
#include "drop_zone.h"
#include "gui_application.h"
#include "main_window.h"
#include "menu_bar.h"
#include "platform/main_queue.h"
#include "platform/notification_center.h"
#include "platform/string_tables.h"
#include "platform/user_defaults.h"
#include "preferences_window.h"
#include "results/duplicates_controller.h"
#include "selection/autoselect_lists.h"
#include "settings/ignore_list.h"
#include "settings/preferences.h"
#include "single_instance.h"
#include "support/temp_tree.h"

using namespace corvel;
using namespace corvel::gui;
namespace fs = std::filesystem;

namespace {

// Two copies of a file the automatic minimum size keeps (over 50,000 bytes), and one
// file of its own.
void writeDuplicates(const test::TempTree& tree) {
    const std::string content(60000, 'x');
    tree.file("a/photo.jpg", content);
    tree.file("b/photo copy.jpg", content);
    tree.file("b/other.bin", std::string(70000, 'y'));
}

// Drops the folders on the widget as a file manager's drag would.
void dropFolders(QWidget* target, const std::vector<std::string>& folders) {
    QMimeData data;
    QList<QUrl> urls;
    for (const auto& f : folders)
        urls << QUrl::fromLocalFile(QString::fromStdString(f));
    data.setUrls(urls);
    const QPointF centre(target->width() / 2.0, target->height() / 2.0);
    QDragEnterEvent enter(centre.toPoint(), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &enter);
    QDropEvent drop(centre, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &drop);
}

QString socketIn(const test::TempTree& tree) {
    return QString::fromStdString(tree / "corvel-gui.socket");
}

// The value as the settings file on disk holds it.
PropertyValue stored(const char* key) {
    UserDefaults file(UserDefaults::standardUserDefaults().path());
    return file.objectForKey(key);
}

} // namespace

class GuiTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void scanOfADroppedTreeFindsItsDuplicates();
    void dropsThatCarryNoFolderAreRefused();
    void aSecondScanLetsTheFirstGoOnAnotherThread();
    void theReleaseThreadDropsWhatItWasGiven();
    void quitDuringAScanAsksOnceAndContinuesOrQuits();
    void quitWhileIdleQuitsAtOnce();
    void secondLaunchHandsItsFoldersOver();
    void handOverFindsNobodyWhenNoInstanceRuns();
    void preferencesAreWrittenToTheSettingsFile();
    void anInvalidPatternIsRefusedAndTheStoredOneStays();
    void anUnreadableIgnoreListIsNeverOverwritten();
    void alwaysAndNeverSelectFoldersAreStored();
    void menuItemsFollowTheWindowState();
    void theWindowsAlertAnswersItsDefaultToReturnAndEscape();
};

void GuiTest::scanOfADroppedTreeFindsItsDuplicates() {
    test::TempTree tree;
    writeDuplicates(tree);
    GuiApplication app({socketIn(tree), {}, {}});
    app.start();
    MainWindow& window = app.window();
    QVERIFY(window.isVisible());
    ScanPage* page = window.scanPage();
    QCOMPARE(page->statusLabel()->text(),
             QString::fromStdString(localized("StatusTextViewStatus_AddingFolders")));
    QVERIFY(page->startButton()->isHidden());

    dropFolders(page->dropZone(), {tree / "a", tree / "b"});
    QCOMPARE(page->dropZone()->targets().size(), std::size_t(2));
    QCOMPARE(page->dropZone()->targetName(), QString("2 Folders"));
    QVERIFY(!page->startButton()->isHidden());

    QTest::mouseClick(page->startButton(), Qt::LeftButton);
    CVScanWindowController* controller = app.delegate().scanWindowController();
    QVERIFY(controller);
    QTRY_COMPARE_WITH_TIMEOUT(controller->windowState(), std::int32_t(WindowStateFound), 20000);
    QVERIFY(page->dropZone()->progress() <= 1.0);
    QCOMPARE(page->dropZone()->finishMark(), std::optional<FinishMark>(FinishMark::Found));
    QVERIFY2(page->statusLabel()->text().contains("found"), qPrintable(page->statusLabel()->text()));
    QVERIFY(!page->resultsButton()->isHidden());
    QCOMPARE(page->stopButton()->text(), QString::fromStdString(localized("ButtonTitle_NewScan", "Buttons")));
    auto results = controller->duplicatesFinder()->duplicatesController();
    QVERIFY(results);
    QCOMPARE(results->count(), std::uint64_t(1));
}

void GuiTest::aSecondScanLetsTheFirstGoOnAnotherThread() {
    test::TempTree tree;
    writeDuplicates(tree);
    GuiApplication app({socketIn(tree), {}, {}});
    app.start();
    app.delegate().checkAndAddFoldersForScan({tree / "a", tree / "b"});
    CVScanWindowController* controller = app.delegate().scanWindowController();
    controller->startScanAction(false);
    QTRY_COMPARE_WITH_TIMEOUT(controller->windowState(), std::int32_t(WindowStateFound), 20000);
    std::weak_ptr<CVDuplicatesController> firstResults =
        controller->duplicatesFinder()->duplicatesController();
    std::weak_ptr<CVFile> firstCopy = firstResults.lock()->allDuplicatesGroups().front()->files().front();
    QVERIFY(!firstCopy.expired());

    controller->forceNewScan();
    app.delegate().checkAndAddFoldersForScan({tree / "a", tree / "b"});
    controller->startScanAction(false);
    QTRY_COMPARE_WITH_TIMEOUT(controller->windowState(), std::int32_t(WindowStateFound), 20000);
    // The first scan's results and nodes are gone once the release thread is idle; the
    // second scan found the same copies afresh, on the same files.
    QTRY_VERIFY(firstResults.expired());
    app.release().waitUntilIdle();
    QVERIFY(firstCopy.expired());
    auto second = controller->duplicatesFinder()->duplicatesController();
    QVERIFY(second);
    QCOMPARE(second->count(), std::uint64_t(1));
    QVERIFY(fs::exists(tree / "a/photo.jpg") && fs::exists(tree / "b/photo copy.jpg"));
}

void GuiTest::theReleaseThreadDropsWhatItWasGiven() {
    struct Noted {
        Noted(std::thread::id* on, std::atomic<int>* count) : droppedOn(on), dropped(count) {}
        std::thread::id* droppedOn;
        std::atomic<int>* dropped;
        ~Noted() {
            *droppedOn = std::this_thread::get_id();
            ++*dropped;
        }
    };
    std::thread::id droppedOn;
    std::atomic<int> dropped{0};
    {
        BackgroundRelease release;
        auto held = std::make_shared<Noted>(&droppedOn, &dropped);
        std::weak_ptr<Noted> watch = held;
        release.release(std::move(held));
        release.waitUntilIdle();
        QVERIFY(watch.expired());
        QCOMPARE(dropped.load(), 1);
        QVERIFY(droppedOn != std::this_thread::get_id());
        // Whatever is still queued when it ends is dropped, none left behind.
        for (int i = 0; i < 50; ++i)
            release.release(std::make_shared<Noted>(&droppedOn, &dropped));
        release.release(nullptr);
    }
    QCOMPARE(dropped.load(), 51);
}

void GuiTest::dropsThatCarryNoFolderAreRefused() {
    test::TempTree tree;
    const std::string file = tree.file("note.txt", "hello");
    GuiApplication app({socketIn(tree), {}, {}});
    app.start();
    DropZone* zone = app.window().scanPage()->dropZone();
    dropFolders(zone, {file, "/nonexistent/folder"});
    QVERIFY(zone->targets().empty());
    QVERIFY(app.window().scanPage()->startButton()->isHidden());
}

void GuiTest::quitDuringAScanAsksOnceAndContinuesOrQuits() {
    test::TempTree tree;
    GuiApplication app({socketIn(tree), {}, {}});
    app.start();
    int quits = 0;
    app.shell().setQuitAction([&] { ++quits; });
    app.delegate().updateMainWindowState(WindowStateScanning);

    QVERIFY(!app.shell().quitRequested());
    QMessageBox* sheet = app.shell().quitSheet();
    QVERIFY(sheet);
    QVERIFY(sheet->isVisible());
    QCOMPARE(sheet->text(), QString::fromStdString(localized("AlertMessageText_QuitingCorvelQuestion")));
    QVERIFY2(!app.shell().quitRequested(), "a second request while the sheet is up");
    QCOMPARE(app.shell().quitSheet(), sheet);

    // Continue: the scan goes on and nothing quits.
    sheet->defaultButton()->click();
    QTRY_VERIFY(!app.shell().quitSheet());
    QTest::qWait(50);
    QCOMPARE(quits, 0);
    QCOMPARE(app.delegate().terminationStatus(), 0);

    // Asked again; this time quit.
    app.window().close();
    QTRY_VERIFY(app.shell().quitSheet());
    QVERIFY2(app.window().isVisible(), "the window stays while the sheet asks");
    sheet = app.shell().quitSheet();
    for (QAbstractButton* b : sheet->buttons())
        if (b != sheet->defaultButton())
            b->click();
    QTRY_COMPARE(quits, 1);
    QCOMPARE(app.delegate().terminationStatus(), 2);
}

void GuiTest::quitWhileIdleQuitsAtOnce() {
    test::TempTree tree;
    GuiApplication app({socketIn(tree), {}, {}});
    app.start();
    int quits = 0;
    app.shell().setQuitAction([&] { ++quits; });
    QVERIFY(app.shell().quitRequested());
    QCOMPARE(quits, 1);
    QVERIFY(!app.shell().quitSheet());
}

void GuiTest::secondLaunchHandsItsFoldersOver() {
    test::TempTree tree;
    const std::string folder = tree.folder("Pictures");
    const std::string file = tree.file("notes.txt", "x");
    GuiApplication first({socketIn(tree), {}, {}});
    first.start();
    QVERIFY(first.instance().isListening());

    GuiApplication second({socketIn(tree), {folder, file}, {}});
    QVERIFY(second.handOverToRunningInstance());
    DropZone* zone = first.window().scanPage()->dropZone();
    // The folders arrive after the hand-over's delay; the plain file is left out.
    QTRY_COMPARE_WITH_TIMEOUT(zone->targets(), std::vector<std::string>{folder}, 5000);
    QVERIFY(!first.window().scanPage()->startButton()->isHidden());
}

void GuiTest::handOverFindsNobodyWhenNoInstanceRuns() {
    test::TempTree tree;
    GuiApplication lone({socketIn(tree), {tree.folder("x")}, {}});
    QVERIFY(!lone.handOverToRunningInstance());
    // A socket file left by a crashed instance does not stop a new one from listening.
    {
        QLocalServer stale;
        stale.setSocketOptions(QLocalServer::UserAccessOption);
        QVERIFY(stale.listen(socketIn(tree)));
        stale.close();
    }
    SingleInstance instance(socketIn(tree));
    QVERIFY(instance.listen([](const std::vector<std::string>&) {}));
    const std::vector<std::string> odd = {"/tmp/a b/ç%/\n", "/x/\xff\xfe"};
    QCOMPARE(SingleInstance::decodePaths(SingleInstance::encodePaths(odd)), odd);
}

void GuiTest::preferencesAreWrittenToTheSettingsFile() {
    test::TempTree tree;
    GuiApplication app({socketIn(tree), {}, {}});
    app.start();
    app.delegate().showPreferences();
    auto* prefs = dynamic_cast<PreferencesWindow*>(app.shell().preferencesWindow());
    QVERIFY(prefs);
    QVERIFY(prefs->isVisible());
    QVERIFY(prefs->ignoreListEditable());

    QVERIFY(prefs->automaticSize()->isChecked());
    QVERIFY(!prefs->sizeSlider()->isEnabled());
    QVERIFY(prefs->automaticSizeHint()->isVisible());
    prefs->automaticSize()->click();
    QVERIFY(prefs->sizeSlider()->isEnabled());
    QVERIFY2(!prefs->automaticSizeHint()->isVisible(), "the automatic choice's hint goes with it");
    prefs->sizeSlider()->setValue(500);
    QCOMPARE(stored(kOverrideMinSizeKey), PropertyValue(true));
    QCOMPARE(CVPreferences::sharedInstance().minimumScanSize(), std::uint64_t(1000000));
    QCOMPARE(prefs->sizeLabel()->text(), QString::fromUtf8("1\u00a0MB"));

    prefs->deleteButton()->click();
    QCOMPARE(stored(kMoveIntoTrashKey), PropertyValue(false));
    prefs->trashButton()->click();
    QCOMPARE(stored(kMoveIntoTrashKey), PropertyValue(true));
    prefs->removeEmptyFolders()->click();
    QCOMPARE(stored(kRemoveEmptyFoldersKey), PropertyValue(true));
    prefs->reminderPeriod()->setCurrentIndex(3);
    QCOMPARE(stored(kSchedulerIntervalKey).toInt64(), std::int64_t(3));

    const std::string excluded = tree.folder("Backups");
    const std::string excludedFile = tree.file("big.iso", "x");
    std::vector<std::string> answers = {excluded, excludedFile};
    prefs->setChooser([&](bool) -> std::optional<std::string> {
        std::string next = answers.front();
        answers.erase(answers.begin());
        return next;
    });
    prefs->addIgnoredFolder();
    prefs->addIgnoredFile();
    prefs->addExtensionGroup(".BAK, *.tmp");
    UserDefaults file(UserDefaults::standardUserDefaults().path());
    const PropertyValue list = file.objectForKey(kIgnoreListKey);
    auto contains = [](const PropertyValue& records, const std::string& value) {
        for (const auto& r : *records.asArray())
            if (r[kRecordValueKey].toString() == value && r[kRecordEnabledKey].toBool())
                return true;
        return false;
    };
    QVERIFY(contains(list[kDirectoriesKey], excluded));
    QVERIFY(contains(list[kFilePathesKey], excludedFile));
    const PropertyValue& groups = list[kExtentionsGroupsKey];
    const PropertyValue& added = groups[groups.count() - 1];
    QCOMPARE(added[kGroupExtentionsKey].description(),
             PropertyValue(PropertyValue::Array{"bak", "tmp"}).description());

    // Unticking an entry is stored too.
    const int row = prefs->ignoredFolders()->count() - 1;
    prefs->ignoredFolders()->item(row)->setCheckState(Qt::Unchecked);
    UserDefaults again(UserDefaults::standardUserDefaults().path());
    QVERIFY(!contains(again.objectForKey(kIgnoreListKey)[kDirectoriesKey], excluded));

    prefs->ignorePattern()->setText("\\.part$");
    prefs->applyPattern();
    QCOMPARE(stored(kIgnoreRegexpStringKey), PropertyValue("\\.part$"));

    // An item excluded from the results meanwhile shows when the window opens again.
    prefs->hide();
    CVIgnoreList::sharedIgnoreList().excludeFilesList().push_back(
        PropertyValue::Dictionary{{kRecordValueKey, "/data/excluded.iso"}, {kRecordEnabledKey, true}});
    app.delegate().showPreferences();
    QVERIFY(prefs->isVisible());
    QCOMPARE(prefs->ignoredFiles()->item(prefs->ignoredFiles()->count() - 1)->text(),
             QString("/data/excluded.iso"));
    // And while the window is open, as the results view tells of the exclusion.
    CVIgnoreList::sharedIgnoreList().excludeFilesList().push_back(
        PropertyValue::Dictionary{{kRecordValueKey, "/data/second.iso"}, {kRecordEnabledKey, true}});
    NotificationCenter::defaultCenter().post(kItemsAddedToIgnoreListNotification);
    QCOMPARE(prefs->ignoredFiles()->item(prefs->ignoredFiles()->count() - 1)->text(),
             QString("/data/second.iso"));
}

void GuiTest::anInvalidPatternIsRefusedAndTheStoredOneStays() {
    UserDefaults& defaults = UserDefaults::standardUserDefaults();
    defaults.setObject(PropertyValue("\\.old$"), kIgnoreRegexpStringKey);
    QVERIFY(defaults.synchronize());
    PreferencesWindow prefs(defaults, CVPreferences::sharedInstance(), CVIgnoreList::sharedIgnoreList(),
                            nullptr);
    prefs.ignorePattern()->setText("([unclosed");
    prefs.applyPattern();
    QCOMPARE(stored(kIgnoreRegexpStringKey), PropertyValue("\\.old$"));
    QVERIFY(!prefs.patternMessage()->text().isEmpty());
}

void GuiTest::anUnreadableIgnoreListIsNeverOverwritten() {
    UserDefaults& defaults = UserDefaults::standardUserDefaults();
    const PropertyValue saved = defaults.objectForKey(kIgnoreListKey);
    defaults.setObject(PropertyValue("not a list"), kIgnoreListKey);
    QVERIFY(defaults.synchronize());
    {
        PreferencesWindow prefs(defaults, CVPreferences::sharedInstance(), CVIgnoreList::sharedIgnoreList(),
                                nullptr);
        test::TempTree tree;
        const std::string folder = tree.folder("x");
        prefs.setChooser([&](bool) { return std::optional<std::string>(folder); });
        prefs.addIgnoredFolder();
        prefs.addExtensionGroup("iso");
        prefs.removeSelectedIgnored(prefs.ignoredFolders());
        prefs.ignoredFolders()->addItem("edited");
        QCOMPARE(stored(kIgnoreListKey), PropertyValue("not a list"));
        QVERIFY(!prefs.ignoreListEditable());
        QVERIFY(!prefs.ignoredFolders()->isEnabled());
    }
    defaults.setObject(saved, kIgnoreListKey);
    QVERIFY(defaults.synchronize());
}

void GuiTest::alwaysAndNeverSelectFoldersAreStored() {
    test::TempTree tree;
    const std::string downloads = tree.folder("Downloads");
    const std::string keep = tree.folder("Keep");
    UserDefaults& defaults = UserDefaults::standardUserDefaults();
    PreferencesWindow prefs(defaults, CVPreferences::sharedInstance(), CVIgnoreList::sharedIgnoreList(),
                            nullptr);
    std::vector<std::string> asked;
    AlertChoice answer = AlertChoice::Alternate;
    prefs.setAsker(
        [&](const std::string& message, const std::string&, const std::string&, const std::string&) {
            asked.push_back(message);
            return answer;
        });
    prefs.addSelectionFolder(kNeverSelect, keep);
    prefs.addSelectionFolder(kAlwaysSelect, downloads);
    auto inFile = [&](std::int32_t category, const std::string& path) {
        UserDefaults file(defaults.path());
        for (const auto& item : CVAutoselectLists(file).list())
            if (item.category == category && item.path == path)
                return true;
        return false;
    };
    QVERIFY(inFile(kNeverSelect, keep));
    QVERIFY(inFile(kAlwaysSelect, downloads));
    QVERIFY(asked.empty());

    // The same folder in the other list: asked; cancelling leaves both lists alone.
    prefs.addSelectionFolder(kAlwaysSelect, keep);
    QCOMPARE(asked.size(), std::size_t(1));
    QVERIFY(inFile(kNeverSelect, keep));
    QVERIFY(!inFile(kAlwaysSelect, keep));
    // Switching moves it.
    answer = AlertChoice::Default;
    prefs.addSelectionFolder(kAlwaysSelect, keep);
    QVERIFY(inFile(kAlwaysSelect, keep));
    QVERIFY(!inFile(kNeverSelect, keep));

    prefs.alwaysSelect()->setCurrentRow(prefs.alwaysSelect()->count() - 1);
    prefs.removeSelectedSelectionFolder(kAlwaysSelect);
    QVERIFY(!inFile(kAlwaysSelect, keep));
}

// The window's alert ("Start a new scan? The current results will be lost.") keeps things
// as they are on Return and on Escape; only a click on the other button goes on.
void GuiTest::theWindowsAlertAnswersItsDefaultToReturnAndEscape() {
    test::TempTree tree;
    GuiApplication app({socketIn(tree), {}, {}});
    app.start();
    const struct {
        const char* name;
        std::function<void(QMessageBox*)> answer;
        AlertChoice expected;
    } cases[] = {
        {"Return", [](QMessageBox* box) { QTest::keyClick(box, Qt::Key_Return); }, AlertChoice::Default},
        {"Escape", [](QMessageBox* box) { QTest::keyClick(box, Qt::Key_Escape); }, AlertChoice::Default},
        {"the other button",
         [](QMessageBox* box) {
             for (QAbstractButton* button : box->buttons())
                 if (button->text() == "Go on")
                     button->click();
         },
         AlertChoice::Alternate},
    };
    for (const auto& c : cases) {
        bool answered = false;
        QTimer::singleShot(50, [&] {
            if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
                c.answer(box);
                answered = true;
            }
        });
        const AlertChoice choice = app.window().runModalAlert("Start again?", "", "Keep", "Go on");
        QVERIFY2(answered, c.name);
        QVERIFY2(choice == c.expected, c.name);
    }
}

void GuiTest::menuItemsFollowTheWindowState() {
    test::TempTree tree;
    GuiApplication app({socketIn(tree), {}, {}});
    app.start();
    MenuBar& menus = app.menus();
    menus.validateAll();
    QVERIFY(menus.action("openFile:")->isEnabled());
    QVERIFY(!menus.action("newScan:")->isEnabled());
    QVERIFY(!menus.action("showResultsAction:")->isEnabled());
    QVERIFY(menus.action("scanPictures:")->isEnabled());
    app.delegate().updateMainWindowState(WindowStateScanning);
    menus.validateAll();
    QVERIFY(!menus.action("openFile:")->isEnabled());
    QVERIFY(menus.action("newScan:")->isEnabled());
    QVERIFY(menus.action("showResultsAction:")->isEnabled());
    QVERIFY(!menus.action("scanPictures:")->isEnabled());
    QVERIFY(menus.action("showAboutPanel:")->isEnabled());
    app.delegate().updateMainWindowState(WindowStateIdle);

    // A disabled command's shortcut does nothing: "Show Results" while idle.
    menus.action("showResultsAction:")->trigger();
    QCOMPARE(app.delegate().scanWindowController()->windowState(), std::int32_t(WindowStateIdle));
    app.delegate().showAboutPanel();
    QVERIFY(app.shell().aboutPanel());
    QVERIFY(app.shell().aboutPanel()->isVisible());
}

QTEST_MAIN(GuiTest)
#include "gui_test.moc"

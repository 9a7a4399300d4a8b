// The results page and the collector driven as a user would, on the offscreen platform:
// a dropped tree scanned, the results shown, categories switched, copies auto-selected
// and marked by hand, the collector opened, one copy kept and the rest removed to a
// Trash inside the test's own folder. Every test program runs in its own home and
// settings file (support/isolated_environment.cpp).

#include <QApplication>
#include <QHeaderView>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <QUrl>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <set>

#include "app/app_delegate.h"
#include "app/collector_view_controller.h"
#include "app/groups_sorting.h"
#include "app/results_view_controller.h"
#include "app/scan_window_controller.h"
#include "collector_panel.h"
#include "drop_zone.h"
#include "file_manager_reveal.h"
#include "gui_application.h"
#include "main_window.h"
#include "platform/string_tables.h"
#include "platform/user_defaults.h"
#include "preview_pane.h"
#include "results/meta_group.h"
#include "results_page.h"
#include "settings/preferences.h"
#include "size_diagram.h"
#include "support/temp_tree.h"
#include "trash_inside.h"

using namespace corvel;
using namespace corvel::gui;
namespace fs = std::filesystem;

namespace {

// Three copies of a picture, two of a document, files of their own; all above the
// automatic minimum size.
void writeTree(const test::TempTree& tree) {
    const std::string picture(60000, 'p');
    tree.file("a/photo.jpg", picture);
    tree.file("b/photo.jpg", picture);
    tree.file("c/photo copy.jpg", picture);
    const std::string document(70000, 'd');
    tree.file("a/report.txt", document);
    tree.file("b/report.txt", document);
    tree.file("c/single.bin", std::string(80000, 's'));
    // a and b differ, so they are not one pair of duplicate folders.
    tree.file("a/only-a.dat", std::string(90000, 'A'));
    tree.file("b/only-b.dat", std::string(90000, 'B'));
}

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

int rowOfCategory(ResultsPage* page, std::int32_t id) {
    for (int row = 0; row < page->categoriesList()->count(); ++row)
        if (page->categoriesList()->item(row)->data(Qt::UserRole).toInt() == id)
            return row;
    return -1;
}

int rowOfGroup(ResultsPage* page, const QString& name) {
    for (int row = 0; row < page->groupsModel()->rowCount(); ++row)
        if (page->groupsModel()->groupAt(row)->name() == name.toStdString())
            return row;
    return -1;
}

std::set<std::string> markedPaths(const std::shared_ptr<CVGroup>& group) {
    std::set<std::string> paths;
    for (const auto& file : group->files())
        if (file->needToRemove())
            paths.insert(file->path());
    return paths;
}

// Scans the folders of the tree and shows the results page.
ResultsPage* scanAndShowResults(GuiApplication& app, const test::TempTree& tree) {
    app.start();
    dropFolders(app.window().scanPage()->dropZone(), {tree / "a", tree / "b", tree / "c"});
    QTest::mouseClick(app.window().scanPage()->startButton(), Qt::LeftButton);
    CVScanWindowController* controller = app.delegate().scanWindowController();
    if (!QTest::qWaitFor([&] { return controller->windowState() == WindowStateFound; }, 20000))
        return nullptr;
    QTest::mouseClick(app.window().scanPage()->resultsButton(), Qt::LeftButton);
    if (!QTest::qWaitFor([&] { return controller->windowState() == WindowStateResults; }, 5000))
        return nullptr;
    return app.resultsPage();
}

} // namespace

class ResultsPageTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void browseSelectKeepAndRemoveToTheTrash();
    void theGroupsTableSortsByItsColumns();
    void markingEveryCopyAsksAndKeepsByDefault();
    void theSearchFieldFiltersTheGroups();
    void theSizeDiagramChoosesCategoriesAndItsChoiceIsStored();
    void thePreviewShowsImagesAndText();
    void revealFallsBackToTheParentFolder();
};

void ResultsPageTest::init() {
    CVPreferences::sharedInstance().setMoveDuplicatesToTrash(true);
    UserDefaults::standardUserDefaults().setBool(false, kDontWarnAllFilesSelectionKey);
}

// NOLINTNEXTLINE(readability-function-size): one walk through the page, step after step, as a user goes.
void ResultsPageTest::browseSelectKeepAndRemoveToTheTrash() {
    test::TempTree tree;
    writeTree(tree);
    test::TrashInside trash(tree);
    GuiApplication app({socketIn(tree), {}, {}});
    ResultsPage* page = scanAndShowResults(app, tree);
    QVERIFY(page);
    QVERIFY(app.window().showingResults());
    QVERIFY(page->isVisible());

    // All, Pictures and Documents, with their counts; every group shown under All.
    const int pictures = rowOfCategory(page, kMetaGroupPictures);
    const int documents = rowOfCategory(page, kMetaGroupDocuments);
    QVERIFY(pictures > 0);
    QVERIFY(documents > 0);
    QCOMPARE(page->categoriesList()->currentRow(), 0);
    QCOMPARE(page->groupsModel()->rowCount(), 2);
    QVERIFY2(page->categoriesList()->item(pictures)->text().contains("1 group ·"),
             qPrintable(page->categoriesList()->item(pictures)->text()));

    // Switching to Pictures shows the picture group only; auto select marks two of its
    // three copies and nothing in the documents.
    page->categoriesList()->setCurrentRow(pictures);
    QCOMPARE(page->groupsModel()->rowCount(), 1);
    const auto photos = page->groupsModel()->groupAt(0);
    QCOMPARE(photos->childrenCount(), std::uint64_t(3));
    QVERIFY(!page->reviewButton()->isEnabled());
    QTest::mouseClick(page->autoSelectButton(), Qt::LeftButton);
    QTRY_VERIFY(photos->filesToRemoveCount() > 0);
    QTRY_VERIFY(page->reviewButton()->isEnabled());
    const std::int64_t autoMarked = photos->filesToRemoveCount();
    QVERIFY2(autoMarked < 3, "auto select keeps a copy");

    // The files of the selected group, their boxes showing the marks.
    page->groupsTable()->selectRow(0);
    QCOMPARE(page->filesModel()->rowCount(), 3);
    std::vector<int> uncheckedRows;
    for (int row = 0; row < 3; ++row)
        if (page->filesModel()->index(row, FilesModel::Name).data(Qt::CheckStateRole) != Qt::Checked)
            uncheckedRows.push_back(row);
    QCOMPARE(std::int64_t(3 - uncheckedRows.size()), autoMarked);
    // Ticking a box marks the copy, unticking takes the mark away; two stay marked.
    const QModelIndex box = page->filesModel()->index(uncheckedRows.front(), FilesModel::Name);
    if (autoMarked == 1) {
        QVERIFY(page->filesModel()->setData(box, Qt::Checked, Qt::CheckStateRole));
        QTRY_COMPARE(photos->filesToRemoveCount(), std::int64_t(2));
        QCOMPARE(box.data(Qt::CheckStateRole), QVariant(Qt::Checked));
    }
    int markedRow = 0;
    while (page->filesModel()->index(markedRow, FilesModel::Name).data(Qt::CheckStateRole) != Qt::Checked)
        ++markedRow;
    const QModelIndex marked = page->filesModel()->index(markedRow, FilesModel::Name);
    QVERIFY(page->filesModel()->setData(marked, Qt::Unchecked, Qt::CheckStateRole));
    QTRY_COMPARE(photos->filesToRemoveCount(), std::int64_t(1));
    QCOMPARE(marked.data(Qt::CheckStateRole), QVariant(Qt::Unchecked));
    // The keyboard marks the current copy again with Ctrl+Space (Space is the preview's).
    page->filesTable()->setFocus();
    page->filesTable()->setCurrentIndex(marked.siblingAtColumn(FilesModel::Size));
    QTest::keyClick(page->filesTable(), Qt::Key_Space, Qt::ControlModifier);
    QTRY_COMPARE(photos->filesToRemoveCount(), std::int64_t(2));
    QCOMPARE(marked.data(Qt::CheckStateRole), QVariant(Qt::Checked));
    QTest::keyClick(page->filesTable(), Qt::Key_Insert); // the same without Ctrl+Space
    QTRY_COMPARE(photos->filesToRemoveCount(), std::int64_t(1));
    QTest::keyClick(page->filesTable(), Qt::Key_Insert);
    QTRY_COMPARE(photos->filesToRemoveCount(), std::int64_t(2));
    QTRY_COMPARE(page->groupsModel()->index(0, GroupsModel::Selected).data().toString(), QString("2"));

    // Back to All. The two reports have the same date, so auto select cannot choose
    // between them; "Keep Any One" on the selected group can.
    page->categoriesList()->setCurrentRow(0);
    QCOMPARE(page->groupsModel()->rowCount(), 2);
    QTest::mouseClick(page->autoSelectButton(), Qt::LeftButton);
    const int reportsRow = rowOfGroup(page, "report");
    const auto reports = page->groupsModel()->groupAt(reportsRow);
    QTest::qWait(100);
    QCOMPARE(reports->filesToRemoveCount(), std::int64_t(0));
    page->groupsTable()->selectRow(reportsRow);
    auto* keepAny = page->groupsMenuButton()->menu()->findChild<QAction*>("Results_LevelAny");
    QVERIFY(keepAny);
    keepAny->trigger();
    QTRY_COMPARE(reports->filesToRemoveCount(), std::int64_t(1));
    QCOMPARE(photos->filesToRemoveCount(), std::int64_t(2));
    const std::int64_t total = photos->filesToRemoveCount() + reports->filesToRemoveCount();
    QTRY_VERIFY2(page->amountLabel()->text().contains(QString::number(total)),
                 qPrintable(page->amountLabel()->text()));

    // The collector lists the three copies by group.
    QTest::mouseClick(page->reviewButton(), Qt::LeftButton);
    CollectorPanel* collector = page->collectorPanel();
    QTRY_VERIFY(page->collectorShown());
    QTRY_COMPARE(app.delegate().scanWindowController()->windowState(), std::int32_t(WindowStateCollector));
    CollectorModel* model = collector->model();
    QCOMPARE(model->rowCount(), 2);
    int fileRows = 0;
    for (int g = 0; g < model->rowCount(); ++g)
        fileRows += model->rowCount(model->index(g, 0));
    QCOMPARE(fileRows, int(total));

    // Keep one of the marked photos.
    QModelIndex photoGroup;
    for (int g = 0; g < model->rowCount(); ++g)
        if (model->index(g, 0).data().toString() == "photo")
            photoGroup = model->index(g, 0);
    QVERIFY(photoGroup.isValid());
    const auto kept = model->fileAt(model->index(0, 0, photoGroup));
    QVERIFY(kept);
    collector->list()->selectionModel()->select(
        model->index(0, 0, photoGroup), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    QTest::mouseClick(collector->keepButton(), Qt::LeftButton);
    QTRY_VERIFY(!kept->needToRemove());

    std::set<std::string> doomed = markedPaths(photos);
    for (const auto& path : markedPaths(reports))
        doomed.insert(path);
    QCOMPARE(std::int64_t(doomed.size()), total - 1);
    QVERIFY(!doomed.empty());
    std::set<std::string> staying;
    for (const auto& group : {photos, reports})
        for (const auto& file : group->files())
            if (!doomed.contains(file->path()))
                staying.insert(file->path());
    QCOMPARE(staying.size(), 5 - doomed.size());

    // Remove: the pass runs on its own thread while the window keeps answering.
    QTest::mouseClick(collector->removeButton(), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(collector->page() != CollectorPanel::Page::List, 30000);
    QCOMPARE(collector->page(), CollectorPanel::Page::Success);
    QVERIFY(collector->freedLabel()->text().contains("freed"));
    QVERIFY(collector->levelLabel()->text().startsWith("Level"));

    for (const auto& path : doomed)
        QVERIFY2(!fs::exists(path), path.c_str());
    for (const auto& path : staying)
        QVERIFY2(fs::exists(path), path.c_str());
    QVERIFY(fs::exists(tree / "c/single.bin"));
    std::set<std::string> inTrash;
    for (const auto& entry : fs::directory_iterator(trash.files()))
        inTrash.insert(entry.path().filename().string());
    std::set<std::string> names;
    for (const auto& path : doomed)
        names.insert(fs::path(path).filename().string());
    QCOMPARE(inTrash, names);
    for (const auto& name : names)
        QVERIFY(fs::exists(trash.info() + "/" + name + ".trashinfo"));

    // Back to the results: the removed copies have left them.
    QTest::mouseClick(collector->doneButton(), Qt::LeftButton);
    QTRY_VERIFY(!page->collectorShown());
    QTRY_COMPARE(app.delegate().scanWindowController()->windowState(), std::int32_t(WindowStateResults));
    QTRY_COMPARE(photos->childrenCount() + reports->childrenCount(), std::uint64_t(staying.size()));
}

void ResultsPageTest::theGroupsTableSortsByItsColumns() {
    test::TempTree tree;
    writeTree(tree);
    GuiApplication app({socketIn(tree), {}, {}});
    ResultsPage* page = scanAndShowResults(app, tree);
    QVERIFY(page);
    QHeaderView* header = page->groupsTable()->horizontalHeader();
    auto firstName = [&] { return page->groupsModel()->index(0, GroupsModel::Name).data().toString(); };

    // Name: A to Z first, then Z to A; the choice is kept in the preferences.
    const int nameX = header->sectionViewportPosition(GroupsModel::Name) + 5;
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, QPoint(nameX, header->height() / 2));
    QVERIFY(firstName().startsWith("photo"));
    QCOMPARE(CVPreferences::sharedInstance().sortKey(), std::int64_t(kSortByName));
    QVERIFY(CVPreferences::sharedInstance().sortDirection());
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, QPoint(nameX, header->height() / 2));
    QCOMPARE(firstName(), QString("report"));
    QCOMPARE(header->sortIndicatorSection(), int(GroupsModel::Name));
    QCOMPARE(header->sortIndicatorOrder(), Qt::DescendingOrder);

    // Size: largest first (three photos of 60,000 bytes outweigh two reports of 70,000).
    const int sizeX = header->sectionViewportPosition(GroupsModel::Size) + 5;
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, QPoint(sizeX, header->height() / 2));
    QCOMPARE(CVPreferences::sharedInstance().sortKey(), std::int64_t(kSortByTotalSize));
    QVERIFY(firstName().startsWith("photo"));
    // Every column sorts by its own key.
    for (int column = 0; column < GroupsModel::ColumnCount; ++column)
        QCOMPARE(GroupsModel::columnForSortType(GroupsModel::sortTypeForColumn(column)), column);
    std::set<std::int64_t> keys;
    for (int column = 0; column < GroupsModel::ColumnCount; ++column)
        keys.insert(GroupsModel::sortTypeForColumn(column));
    QCOMPARE(keys.size(), std::size_t(kSortTypesCount));
}

void ResultsPageTest::markingEveryCopyAsksAndKeepsByDefault() {
    test::TempTree tree;
    writeTree(tree);
    GuiApplication app({socketIn(tree), {}, {}});
    ResultsPage* page = scanAndShowResults(app, tree);
    QVERIFY(page);
    const int row = rowOfGroup(page, "report");
    QVERIFY(row >= 0);
    const auto reports = page->groupsModel()->groupAt(row);
    page->groupsTable()->selectRow(row);
    QCOMPARE(page->filesModel()->rowCount(), 2);
    const QModelIndex first = page->filesModel()->index(0, FilesModel::Name);
    const QModelIndex second = page->filesModel()->index(1, FilesModel::Name);
    page->filesModel()->setData(first, Qt::Checked, Qt::CheckStateRole);
    QTRY_COMPARE(reports->filesToRemoveCount(), std::int64_t(1));

    // The last copy: the warning asks; Return answers with its default, which keeps.
    QString asked;
    QTimer::singleShot(100, [&] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box)
            return;
        asked = box->text();
        QTest::keyClick(box, Qt::Key_Return);
    });
    page->filesModel()->setData(second, Qt::Checked, Qt::CheckStateRole);
    QTRY_VERIFY(!asked.isEmpty());
    QVERIFY2(asked.contains("report"), qPrintable(asked));
    QTest::qWait(50);
    QCOMPARE(reports->filesToRemoveCount(), std::int64_t(1));
    QVERIFY(!reports->userForcedAllCopies());
    QCOMPARE(second.data(Qt::CheckStateRole), QVariant(Qt::Unchecked));
}

void ResultsPageTest::theSearchFieldFiltersTheGroups() {
    test::TempTree tree;
    writeTree(tree);
    GuiApplication app({socketIn(tree), {}, {}});
    ResultsPage* page = scanAndShowResults(app, tree);
    QVERIFY(page);
    QCOMPARE(page->groupsModel()->rowCount(), 2);
    QTest::keyClicks(page->searchField(), "REPO");
    QTRY_COMPARE(page->groupsModel()->rowCount(), 1);
    QCOMPARE(page->groupsModel()->index(0, GroupsModel::Name).data().toString(), QString("report"));
    // Escape in the field clears it, and the groups come back.
    QTest::keyClick(page->searchField(), Qt::Key_Escape);
    QCOMPARE(page->searchField()->text(), QString());
    QTRY_COMPARE(page->groupsModel()->rowCount(), 2);
    // Paths: every group has a copy under the tree.
    page->searchScope()->setCurrentIndex(1);
    QTest::keyClicks(page->searchField(), "/b/");
    QTest::qWait(300);
    QCOMPARE(page->groupsModel()->rowCount(), 2);
}

void ResultsPageTest::theSizeDiagramChoosesCategoriesAndItsChoiceIsStored() {
    test::TempTree tree;
    writeTree(tree);
    UserDefaults::standardUserDefaults().removeObjectForKey(kShowDiagramKey);
    GuiApplication app({socketIn(tree), {}, {}});
    ResultsPage* page = scanAndShowResults(app, tree);
    QVERIFY(page);
    SizeDiagram* diagram = page->sizeDiagram();
    QVERIFY(diagram->isVisible());
    QVERIFY(page->diagramButton()->isChecked());
    // Pictures (three copies of 60,000 bytes) and Documents (two of 70,000).
    const auto segments = diagram->segments();
    QCOMPARE(segments.size(), std::size_t(2));
    const auto documents = std::find_if(segments.begin(), segments.end(),
                                        [](const auto& s) { return s.groupID == kMetaGroupDocuments; });
    QVERIFY(documents != segments.end());
    QVERIFY(documents->spanDegrees < 180);

    // A click on the Documents segment chooses Documents in the list and its groups.
    const double side = std::min(diagram->width(), diagram->height()) - 16;
    const double radius = (side / 2.0 - 5) * 0.87;
    const double angle = (documents->startDegrees + documents->spanDegrees / 2) * M_PI / 180.0;
    const QPointF centre(diagram->width() / 2.0, diagram->height() / 2.0);
    QTest::mouseClick(diagram, Qt::LeftButton, {},
                      (centre + QPointF(radius * std::sin(angle), -radius * std::cos(angle))).toPoint());
    QCOMPARE(page->categoriesList()->currentRow(), rowOfCategory(page, kMetaGroupDocuments));
    QTRY_COMPARE(page->groupsModel()->rowCount(), 1);
    QCOMPARE(page->groupsModel()->index(0, GroupsModel::Name).data().toString(), QString("report"));

    // The button hides it, says how to bring it back, and the choice is in the settings file.
    QTest::mouseClick(page->diagramButton(), Qt::LeftButton);
    QVERIFY(!diagram->isVisible());
    QVERIFY(!page->diagramButton()->isChecked());
    QCOMPARE(page->diagramButton()->toolTip(),
             QString::fromStdString(localized("ButtonToolTip_ShowDiagram", "Buttons")));
    QCOMPARE(UserDefaults(UserDefaults::standardUserDefaults().path()).objectForKey(kShowDiagramKey),
             PropertyValue(false));
    QTest::mouseClick(page->diagramButton(), Qt::LeftButton);
    QVERIFY(diagram->isVisible());
    QCOMPARE(UserDefaults(UserDefaults::standardUserDefaults().path()).objectForKey(kShowDiagramKey),
             PropertyValue(true));
}

void ResultsPageTest::thePreviewShowsImagesAndText() {
    test::TempTree tree;
    const std::string text = tree.file("notes.txt", "first line\nsecond line\n");
    QImage image(40, 30, QImage::Format_RGB32);
    image.fill(Qt::red);
    const std::string picture = tree / "red.png";
    QVERIFY(image.save(QString::fromStdString(picture)));
    const std::string binary = tree.file("data.bin", std::string("\0\1\2\3", 4));
    PreviewPane pane;
    pane.resize(300, 200);
    pane.show();
    pane.showFile(picture);
    QCOMPARE(pane.kind(), PreviewPane::Kind::Image);
    QVERIFY(!pane.imageLabel()->pixmap().isNull());
    pane.showFile(text);
    QCOMPARE(pane.kind(), PreviewPane::Kind::Text);
    QVERIFY(pane.textView()->toPlainText().startsWith("first line"));
    pane.showFile(binary);
    QCOMPARE(pane.kind(), PreviewPane::Kind::Other);
    QVERIFY(pane.infoLabel()->text().contains("data.bin"));
    pane.showFile(tree / "gone.txt");
    QCOMPARE(pane.kind(), PreviewPane::Kind::Other);
    pane.showFile({});
    QCOMPARE(pane.kind(), PreviewPane::Kind::None);
    // Reading never changes the file.
    QCOMPARE(test::TempTree::read(text), std::string("first line\nsecond line\n"));
}

void ResultsPageTest::revealFallsBackToTheParentFolder() {
    // The test program's session bus does not exist: the parent folder is opened.
    FileManagerReveal reveal;
    std::vector<std::string> opened;
    reveal.setFolderOpener([&](const std::string& folder) { opened.push_back(folder); });
    reveal.revealInFileManager({"/tmp/some folder/file.txt", "/tmp/other"});
    QTRY_COMPARE(opened, std::vector<std::string>{"/tmp/some folder"});
    QCOMPARE(FileManagerReveal::parentFolder("/file"), std::string("/"));
    QCOMPARE(FileManagerReveal::parentFolder("/a/b/"), std::string("/a"));
    reveal.revealInFileManager({});
    QCOMPARE(opened.size(), std::size_t(1));
}

QTEST_MAIN(ResultsPageTest)
#include "results_page_test.moc"

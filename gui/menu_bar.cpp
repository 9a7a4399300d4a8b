#include "menu_bar.h"

#include <QAction>
#include <QMenu>

#include "app/app_delegate.h"
#include "gui_text.h"

namespace corvel::gui {
namespace {
constexpr const char* kNameProperty = "corvelAction";
constexpr const char* kTagProperty = "corvelTag";
constexpr std::int64_t kNoTag = 0;
} // namespace

MenuBar::MenuBar(QMenuBar* bar, CorvelAppDelegate& delegate, std::function<void()> quit)
    : QObject(bar), m_bar(bar), m_delegate(delegate) {
    CorvelAppDelegate& d = delegate;
    QMenu* file = bar->addMenu(windowText("Menu_File"));
    add(file, "MenuItem_NewScan", "newScan:", MenuTagNewScan, QKeySequence::New, [&d] { d.newScan(); });
    add(file, "MenuItem_AddFolder", "openFile:", MenuTagOpenPanel, QKeySequence::Open,
        [&d] { d.openFile(); });
    add(file, "MenuItem_Rescan", "rescan:", MenuTagRescan, QKeySequence(Qt::CTRL | Qt::Key_R),
        [&d] { d.rescan(); });
    QMenu* scan = file->addMenu(windowText("Menu_ScanFolder"));
    add(scan, "MenuItem_HomeFolder", "scanHomeFolder:", 231, QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_H),
        [&d] { d.scanHomeFolder(); });
    add(scan, "MenuItem_Desktop", "scanDesktop:", 232, QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_D),
        [&d] { d.scanDesktop(); });
    add(scan, "MenuItem_Documents", "scanDocuments:", 233, QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_O),
        [&d] { d.scanDocuments(); });
    add(scan, "MenuItem_Downloads", "scanDownloads:", 234, QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_L),
        [&d] { d.scanDownloads(); });
    add(scan, "MenuItem_Music", "scanMusic:", 235, {}, [&d] { d.scanMusic(); });
    add(scan, "MenuItem_Movies", "scanMovies:", 236, {}, [&d] { d.scanMovies(); });
    add(scan, "MenuItem_Pictures", "scanPictures:", 237, {}, [&d] { d.scanPictures(); });
    file->addSeparator();
    add(file, "MenuItem_Export", "exportSelectedDupes:", MenuTagExportDuplicates,
        QKeySequence(Qt::CTRL | Qt::Key_E), [&d] { d.exportSelectedDupes(); });
    file->addSeparator();
    QAction* quitItem = file->addAction(windowText("MenuItem_Quit"));
    quitItem->setShortcut(QKeySequence::Quit);
    quitItem->setMenuRole(QAction::QuitRole);
    connect(quitItem, &QAction::triggered, this, [quit] { quit(); });

    QMenu* edit = bar->addMenu(windowText("Menu_Edit"));
    add(edit, "MenuItem_Find", "searchAction:", MenuTagSearch, QKeySequence::Find,
        [&d] { d.searchAction(); });
    edit->addSeparator();
    add(edit, "MenuItem_Preferences", "showPreferences:", kNoTag, QKeySequence(Qt::CTRL | Qt::Key_Comma),
        [&d] { d.showPreferences(); });

    QMenu* view = bar->addMenu(windowText("Menu_View"));
    add(view, "MenuItem_ShowResults", "showResultsAction:", MenuTagShowResults,
        QKeySequence(Qt::CTRL | Qt::Key_2), [&d] { d.showResultsAction(); });
    add(view, "MenuItem_BackToScan", "backToScanAction:", MenuTagBackToScan,
        QKeySequence(Qt::CTRL | Qt::Key_1), [&d] { d.backToScanAction(); });
    view->addSeparator();
    QAction* fullScreen = add(view, "MenuItem_EnterFullScreen", "toggleFullScreen:", MenuTagEnterFullScreen,
                              QKeySequence::FullScreen, [bar] {
                                  QWidget* window = bar->window();
                                  window->setWindowState(window->windowState() ^ Qt::WindowFullScreen);
                              });
    (void)fullScreen;

    QMenu* select = bar->addMenu(windowText("Menu_Select"));
    add(select, "MenuItem_AutoSelect", "autoCollect:", MenuTagAutoCollect, QKeySequence(Qt::CTRL | Qt::Key_A),
        [&d] { d.autoCollect(); });
    add(select, "MenuItem_KeepOldest", "keepAllOldestFiles:", MenuTagKeepOldest, {},
        [&d] { d.keepAllOldestFiles(); });
    add(select, "MenuItem_KeepNewest", "keepAllMostRecentFiles:", MenuTagKeepMostRecent, {},
        [&d] { d.keepAllMostRecentFiles(); });
    add(select, "MenuItem_SelectAllIn", "collectDuplicatesOfFolder:", MenuTagCollectFilesAtPath, {},
        [&d] { d.collectDuplicatesOfFolder(); });
    select->addSeparator();
    add(select, "MenuItem_DeselectAll", "putAllFilesBack:", MenuTagPutAllBack,
        QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_A), [&d] { d.putAllFilesBack(); });
    add(select, "MenuItemTitle_ShowSelectedDuplicates", "showCollector:", MenuTagShowCollector,
        QKeySequence(Qt::CTRL | Qt::Key_Return), [&d] { d.showCollector(); });

    QMenu* help = bar->addMenu(windowText("Menu_Help"));
    add(help, "MenuItem_Help", "FAQAction:", kNoTag, QKeySequence::HelpContents, [&d] { d.FAQAction(); });
    add(help, "MenuItem_ContactSupport", "supportAction:", kNoTag, {}, [&d] { d.supportAction(); });
    add(help, "MenuItem_SuggestFeature", "requestFeatureAction:", kNoTag, {},
        [&d] { d.requestFeatureAction(); });
    help->addSeparator();
    QAction* about = add(help, "MenuItem_About", "showAboutPanel:", kNoTag, {}, [&d] { d.showAboutPanel(); });
    about->setMenuRole(QAction::AboutRole);

    for (QMenu* menu : bar->findChildren<QMenu*>()) {
        connect(menu, &QMenu::aboutToShow, this, [this, menu] {
            for (QAction* a : menu->actions())
                if (a->property(kNameProperty).isValid())
                    validate(a);
        });
        // Closed menus leave the items enabled for their shortcuts, which validate on trigger.
        connect(menu, &QMenu::aboutToHide, this, [menu] {
            for (QAction* a : menu->actions())
                if (a->property(kNameProperty).isValid())
                    a->setEnabled(true);
        });
    }
}

QAction* MenuBar::add(QMenu* menu, const char* titleKey, const char* name, std::int64_t tag,
                      const QKeySequence& shortcut, std::function<void()> command) {
    // The collector item's titles come from the default table, as its validation gives them.
    const bool defaultTable = std::string_view(titleKey).starts_with("MenuItemTitle_");
    QAction* action = menu->addAction(defaultTable ? text(titleKey) : windowText(titleKey));
    action->setProperty(kNameProperty, QString(name));
    action->setProperty(kTagProperty, QVariant::fromValue<qint64>(tag));
    if (!shortcut.isEmpty())
        action->setShortcut(shortcut);
    connect(action, &QAction::triggered, this, [this, action, name, command = std::move(command)] {
        validate(action);
        const bool enabled = action->isEnabled();
        action->setEnabled(true);
        if (!enabled)
            return;
        m_delegate.application().sendAction(name, true, [&command] {
            command();
            return true;
        });
    });
    m_actions.push_back(action);
    return action;
}

void MenuBar::validate(QAction* action) {
    const std::int64_t tag = action->property(kTagProperty).toLongLong();
    const MenuItemValidation validation = m_delegate.validateMenuItem(tag);
    action->setEnabled(validation.enabled);
    if (validation.title)
        action->setText(qs(*validation.title));
}

QAction* MenuBar::action(const std::string& name) const {
    for (QAction* a : m_actions)
        if (a->property(kNameProperty).toString().toStdString() == name)
            return a;
    return nullptr;
}

void MenuBar::validateAll() {
    for (QAction* a : m_actions)
        validate(a);
}

} // namespace corvel::gui

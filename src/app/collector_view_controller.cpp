#include "collector_view_controller.h"

#include <set>

#include "desktop_roles.h"
#include "engine/file_sizer.h"
#include "engine/folder.h"
#include "engine/node_key_values.h"
#include "platform/notification_center.h"
#include "platform/string_tables.h"
#include "platform/system_log.h"
#include "platform/text_format.h"
#include "platform/tracker.h"
#include "platform/user_defaults.h"
#include "removal/achievements_controller.h"
#include "results/duplicates_controller.h"
#include "results_view_controller.h"
#include "settings/preferences.h"
#include "settings/reminder_scheduling.h"

namespace corvel {

CVCollectorViewController::CVCollectorViewController(std::shared_ptr<CVDuplicatesController> duplicates,
                                                     CVResultsViewController* results,
                                                     std::unique_ptr<CollectorView> view,
                                                     ResultsServices services, CollectorHost* host)
    : m_duplicates(std::move(duplicates)), m_results(results), m_view(std::move(view)), m_services(services),
      m_host(host) {
    if (!m_duplicates)
        m_duplicates = std::make_shared<CVDuplicatesController>();
    CVError error;
    m_filter = Predicate::parse("(needToRemove == 1)", &error);
    countDuplicates();
}

CVCollectorViewController::~CVCollectorViewController() {
    *m_alive = false;
    for (const auto id : m_timers)
        m_services.timers.cancelTimer(id);
    // The pass calls back into this controller until it has ended.
    m_pass.reset();
}

void CVCollectorViewController::track(const char* category, const char* action, const std::string& label) {
    m_services.tracker.trackEvent(category, action, label, 1);
}

CVSelectingController* CVCollectorViewController::selecting() const {
    return m_results ? m_results->selectingController() : nullptr;
}

// ---- Counting and the list --------------------------------------------------------------

void CVCollectorViewController::countDuplicates() {
    std::uint64_t count = 0;
    std::uint64_t size = 0;
    for (const auto& group : m_duplicates->allDuplicatesGroups()) {
        for (const auto& file : group->files()) {
            if (file->needToRemove() && !file->wasRemoved()) {
                ++count;
                size += file->sizeOnDisk();
            }
        }
    }
    m_count = count;
    m_size = size;
    // The size comes first and the count second; the text places them.
    m_view->setAmountLine(formatf(localizedCount("TextFieldString_DuplicatesAmountAndSize", count),
                                  stringWithSize(size), static_cast<unsigned long>(count)));
}

void CVCollectorViewController::rebuildList() {
    m_list.clear();
    if (m_filterActive && m_filter) {
        for (const auto& group : m_duplicates->allDuplicatesGroups()) {
            CollectorListGroup entry{group, {}};
            for (const auto& file : group->files())
                if (!file->wasRemoved() && m_filter->evaluate(NodeKeyValues(*file)))
                    entry.files.push_back(file);
            if (!entry.files.empty())
                m_list.push_back(std::move(entry));
        }
    }
    m_view->showList(m_list);
}

std::vector<CVCollectorViewController::FilePtr> CVCollectorViewController::objectsForQuickLook() const {
    return m_selectedFiles;
}

void CVCollectorViewController::closePreviewPanel() {
    if (m_services.preview)
        m_services.preview->closePreview();
}

void CVCollectorViewController::shouldIncSelectedSize(std::int64_t /*size*/, std::int64_t /*count*/,
                                                      const std::string& warning,
                                                      const std::string& details) {
    countDuplicates();
    if (m_expanded)
        rebuildList();
    m_view->showSelectionMessage(warning, details);
}

// ---- Open and close ----------------------------------------------------------------------

void CVCollectorViewController::showHideCollector() {
    if (m_animationInProgress || shredInProgress())
        return;
    if (m_expanded)
        close();
    else
        open();
}

void CVCollectorViewController::open() {
    m_view->setRemoveButton(localized("ButtonTitle_Remove", "Buttons"),
                            localized("ButtonToolTip_Remove", "Buttons"));
    closePreviewPanel();
    systemLog("Openning collector");
    m_filterActive = true;
    m_view->setRemoveButtonEnabled(true);
    m_view->setRemovalMode(m_services.preferences.moveDuplicatesToTrash());
    rebuildList();
    std::weak_ptr<bool> alive = m_alive;
    m_animationInProgress = true;
    m_view->slideIn([this, alive] {
        if (alive.lock())
            m_animationInProgress = false;
    });
    m_view->deselectAllRows();
    m_selectedFiles.clear();
    countDuplicates();
    if (m_host)
        m_host->setWindowState(8);
    m_view->setCloseButtonEnabled(false);
    m_view->setInformationPanelHidden(true);
    m_view->setListFirstResponder(true);
    m_expanded = true;
    systemLogf("Collector count = %lu size = %@", static_cast<unsigned long>(m_count),
               stringWithSize(m_size));
}

void CVCollectorViewController::close() {
    systemLog("Closing collector");
    std::weak_ptr<bool> alive = m_alive;
    m_animationInProgress = true;
    m_view->slideOut([this, alive] {
        if (alive.lock())
            closingFinished();
    });
}

void CVCollectorViewController::closingFinished() {
    m_animationInProgress = false;
    m_expanded = false;
    if (m_host)
        m_host->setWindowState(7);
    m_view->setCloseButtonEnabled(true);
    m_view->setInformationPanelHidden(false);
    m_view->setListFirstResponder(false);
    m_filterActive = false;
    m_selectedFiles.clear();
    rebuildList();
    if (m_needRefreshing) {
        m_duplicates->removeDeletedFiles();
        m_needRefreshing = false;
        countDuplicates();
        m_services.center.post(kCollectorDidUpdateRemovedFilesNotification);
    }
}

void CVCollectorViewController::doneButtonAction() {
    track("Cleanup Complete", "Done");
    if (m_expanded)
        showHideCollector();
}

void CVCollectorViewController::closeButtonAction(bool escapeKey) {
    if (!m_expanded || shredInProgress())
        return;
    if (m_passHasRun)
        track("Cleanup Complete", "Done");
    else
        track("Deletion Summary", "Cancel", escapeKey ? "ESC" : "Close");
    showHideCollector();
}

// ---- Keeping and putting back ------------------------------------------------------------

void CVCollectorViewController::removeFileFromCollector(const FilePtr& file) {
    CVSelectingController* controller = selecting();
    if (!file || !controller || shredInProgress() || !file->needToRemove())
        return;
    track("Deletion Summary", "Remove File from List");
    controller->deselectItem(file);
    countDuplicates();
    if (m_count != 0) {
        rebuildList();
        return;
    }
    if (m_expanded)
        showHideCollector();
}

void CVCollectorViewController::putBack() {
    CVSelectingController* controller = selecting();
    if (!controller || shredInProgress())
        return;
    const AlertChoice choice = m_view->runModalAlert(
        localized("AlertMessageText_DeselectAllDuplicatesQuestion"), "",
        localized("ButtonTitle_DeselectAll", "Buttons"), localized("ButtonTitle_Cancel", "Buttons"));
    if (choice != AlertChoice::Default) {
        track("Deletion Summary", "Put All Back", "Closed");
        return;
    }
    controller->deselectGroups(m_duplicates->allDuplicatesGroups());
    countDuplicates();
    if (m_expanded)
        showHideCollector();
    track("Deletion Summary", "Put All Back", "Put Back");
}

// ---- After a cleanup ---------------------------------------------------------------------

void CVCollectorViewController::newScan() {
    track("Cleanup Complete", "New Scan");
    // The results are dropped with the new scan: the removed files need not leave them.
    m_needRefreshing = false;
    m_view->closeSharingWindow();
    std::weak_ptr<bool> alive = m_alive;
    m_timers.push_back(m_services.timers.scheduleTimer(kNewScanDelay, [this, alive] {
        if (alive.lock() && m_host)
            m_host->forceNewScan();
    }));
    if (m_services.reminder)
        m_services.reminder->scheduleCleanReminder();
}

void CVCollectorViewController::backToScan() {
    if (!m_host)
        return;
    m_host->backToScan();
    std::weak_ptr<bool> alive = m_alive;
    m_timers.push_back(m_services.timers.scheduleTimer(kBackToScanRepeatDelay, [this, alive] {
        if (alive.lock() && m_host)
            m_host->backToScan();
    }));
}

void CVCollectorViewController::revealInFinder(const FilePtr& file) {
    if (file)
        m_services.reveal.revealInFileManager({file->path()});
}

void CVCollectorViewController::twitterAction() {
    track("Cleanup Complete", "Share");
    if (m_services.sharing)
        m_services.sharing->shareRecoveredSpace(m_pass ? m_pass->removedSize() : 0,
                                                m_services.achievements.lastTimeSize(), iPhotoWasLaunched(),
                                                iTunesWasLaunched());
}

bool CVCollectorViewController::shouldAdvertiseTDW() const {
    if (!m_services.preferences.shouldAdvertiseTDW())
        return false;
    if (m_services.defaults.boolForKey(kDontShowAdvertAgainKey))
        return false;
    for (const char* identifier : kSiblingProductIdentifiers)
        if (m_services.applications.isApplicationInstalled(identifier))
            return false;
    return m_services.achievements.userTotalSize() >= m_services.preferences.advertisementMinSize();
}

void CVCollectorViewController::adButtonPress() {
    if (iPhotoWasLaunched())
        return;
    track("Cleanup", "Tidewell Promo", "Clicked");
    m_services.applications.openFile(
        "https://www.halvik.com/index.php?" +
        formatf("7&action=corveltdwpromo&%@", m_services.preferences.defaultSiteArguments()));
}

void CVCollectorViewController::dontShowAdAgain() {
    if (!iPhotoWasLaunched())
        track("Cleanup", "Tidewell Promo", "Don't Show Again");
    m_services.defaults.setBool(true, kDontShowAdvertAgainKey);
    m_view->hideAdvertisement();
}

// ---- The removal pass ---------------------------------------------------------------------

bool CVCollectorViewController::canRemoveFiles() const {
    return shredInProgress() || m_count != 0;
}

std::vector<std::string> CVCollectorViewController::scanRoots() const {
    std::set<std::string> roots;
    for (const auto& file : m_duplicates->allFiles())
        if (const auto root = file->rootFolder())
            roots.insert(root->path());
    return {roots.begin(), roots.end()};
}

void CVCollectorViewController::shreddList() {
    if (!m_pass) {
        CVRemovalPass::Options options;
        options.tickPacing = m_removalPacing;
        options.scanRoots = scanRoots();
        m_pass = std::make_unique<CVRemovalPass>(
            CVRemovalPass::Services{*m_duplicates, m_services.defaults, m_services.preferences,
                                    m_services.ignoreList, m_services.trash, m_services.libraryAppDriver,
                                    m_services.statistics, m_services.achievements, *this},
            options);
    }
    m_pass->shreddList();
}

void CVCollectorViewController::passFinished() {
    m_needRefreshing = true;
    m_errorFilesCount = m_pass ? m_pass->errorFilesCount() : 0;
    countDuplicates();
}

void CVCollectorViewController::setRemoveButton(const std::string& title, const std::string& toolTip) {
    m_view->setRemoveButton(title, toolTip);
}

void CVCollectorViewController::setCloseButtonEnabled(bool enabled) {
    m_view->setCloseButtonEnabled(enabled);
}

void CVCollectorViewController::setButtonsEnabled(bool enabled) {
    m_view->setButtonsEnabled(enabled);
}

void CVCollectorViewController::setWindowState(std::int32_t state) {
    m_view->setWindowState(state);
    if (m_host)
        m_host->setWindowState(state);
}

void CVCollectorViewController::startShredderAnimation() {
    m_passHasRun = true;
    m_view->startShredderAnimation();
}

void CVCollectorViewController::advanceShredderAnimation(std::uint64_t handled, std::uint64_t total) {
    m_view->advanceShredderAnimation(handled, total);
}

void CVCollectorViewController::closeShredderAnimation() {
    m_view->closeShredderAnimation();
}

void CVCollectorViewController::endShredderAnimations() {
    m_view->endShredderAnimations();
}

void CVCollectorViewController::showLibraryPopup(LibraryKind kind) {
    m_view->showLibraryPopup(kind);
}

void CVCollectorViewController::hideLibraryPopup(LibraryKind kind) {
    m_view->hideLibraryPopup(kind);
}

void CVCollectorViewController::fileHandled(const CVFile& file, bool ok, const std::string& reason) {
    m_view->fileHandled(file, ok, reason);
}

void CVCollectorViewController::setDoneButtonToolTip(const std::string& toolTip) {
    m_view->setDoneButtonToolTip(toolTip);
}

void CVCollectorViewController::showSuccessView() {
    passFinished();
    const auto& achievements = m_services.achievements;
    CleanupSummary summary;
    summary.sizeFreed = m_pass ? m_pass->removedSize() : 0;
    summary.sizeFreedText = stringWithSize(summary.sizeFreed);
    summary.totalSaved = achievements.userTotalSize();
    summary.totalSavedText = stringWithSize(summary.totalSaved);
    summary.level = achievements.userLevel();
    summary.rank = achievements.userRank();
    summary.advertise = shouldAdvertiseTDW();
    m_view->showCleanupSummary(summary);
    m_view->showSuccessView();
}

void CVCollectorViewController::showErrorList(const std::string& undeletedSizeText) {
    passFinished();
    m_view->showFailedFiles(m_pass ? m_pass->failedFiles() : std::vector<FilePtr>{});
    m_view->showErrorList(undeletedSizeText);
}

void CVCollectorViewController::reloadCollector() {
    countDuplicates();
    rebuildList();
    m_view->reloadCollector();
}

void CVCollectorViewController::postCleanedNotification(std::uint64_t bytes) {
    m_view->postCleanedNotification(bytes);
}

} // namespace corvel

#pragma once
// PreferencesWindow: the settings a user may change, each written to the settings file
// at once through the user-defaults store (synchronised after every change):
//   General   minimum file size (automatic, or the slider's size), Trash or delete,
//             remove emptied folders, the scan reminder's period;
//   Ignore    the ignore list's own folders, files, extension groups (each with its
//             check box) and the extra file-name pattern, which is stored only when it
//             compiles;
//   Selection the Always Select and Never Select folders.
// Settings are never lost: when the stored ignore list is not a list the ignore page is
// read-only and says so, and a pattern that does not compile is refused with ICU's
// reason while the stored one stays. GUI thread.

#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QRadioButton>
#include <QSlider>
#include <QTabWidget>
#include <functional>
#include <optional>
#include <string>

#include "app/scan_window_view.h"
#include "platform/notification_center.h"
#include "platform/property_value.h"
#include "settings/reminder_scheduling.h"

namespace corvel {
class CVIgnoreList;
class CVPreferences;
class CVScheduler;
class UserDefaults;
} // namespace corvel

namespace corvel::gui {

class PreferencesWindow final : public QDialog {
public:
    // scheduler may be null (no notification service): the period is still stored.
    PreferencesWindow(UserDefaults& defaults, CVPreferences& preferences, CVIgnoreList& ignoreList,
                      CVScheduler* scheduler, QWidget* parent = nullptr);

    // Folder and file choosers and questions, replaceable by tests (default: dialogs).
    using Chooser = std::function<std::optional<std::string>(bool folder)>;
    using Asker =
        std::function<AlertChoice(const std::string& message, const std::string& informative,
                                  const std::string& defaultButton, const std::string& alternateButton)>;
    void setChooser(Chooser chooser) { m_choose = std::move(chooser); }
    void setAsker(Asker asker) { m_ask = std::move(asker); }

    // The controls, for tests and screenshots.
    QTabWidget* tabs() const { return m_tabs; }
    QCheckBox* automaticSize() const { return m_automatic; }
    QSlider* sizeSlider() const { return m_slider; }
    QLabel* automaticSizeHint() const { return m_sizeHint; }
    QLabel* sizeLabel() const { return m_sizeLabel; }
    QRadioButton* trashButton() const { return m_trash; }
    QRadioButton* deleteButton() const { return m_delete; }
    QCheckBox* removeEmptyFolders() const { return m_removeEmpty; }
    QComboBox* reminderPeriod() const { return m_period; }
    QListWidget* ignoredFolders() const { return m_folders; }
    QListWidget* ignoredFiles() const { return m_files; }
    QListWidget* ignoredExtensions() const { return m_extensions; }
    QLineEdit* ignorePattern() const { return m_pattern; }
    QLabel* patternMessage() const { return m_patternMessage; }
    QListWidget* alwaysSelect() const { return m_always; }
    QListWidget* neverSelect() const { return m_never; }
    // Whether the ignore page may write (the stored ignore list is readable).
    bool ignoreListEditable() const { return m_ignoreEditable; }

    // The commands behind the buttons.
    void addIgnoredFolder();
    void addIgnoredFile();
    void addExtensionGroup(const QString& extensions);
    void removeSelectedIgnored(QListWidget* list);
    void applyPattern();
    // Adds a folder to Always Select (category 0) or Never Select (1), settling conflicts
    // with the other list as the user answers.
    void addSelectionFolder(std::int32_t category, const std::string& path);
    void removeSelectedSelectionFolder(std::int32_t category);

protected:
    // The ignore lists are read again each time the window shows, and while it shows when
    // the results view excludes an item.
    void showEvent(QShowEvent* event) override;

private:
    QWidget* makeGeneralPage();
    QWidget* makeIgnorePage();
    QWidget* makeSelectionPage();
    void loadIgnoreLists();
    void saveIgnoreLists();
    void loadSelectionLists();
    void updateSizeLabel();
    void save();

    UserDefaults& m_defaults;
    CVPreferences& m_preferences;
    CVIgnoreList& m_ignoreList;
    CVScheduler* m_scheduler;
    Chooser m_choose;
    Asker m_ask;
    bool m_ignoreEditable = true;
    ScopedObserver m_exclusions;
    bool m_loading = false;

    QTabWidget* m_tabs;
    QCheckBox* m_automatic = nullptr;
    QSlider* m_slider = nullptr;
    QLabel* m_sizeLabel = nullptr;
    QLabel* m_sizeHint = nullptr; // what the automatic choice does
    QRadioButton* m_trash = nullptr;
    QRadioButton* m_delete = nullptr;
    QCheckBox* m_removeEmpty = nullptr;
    QComboBox* m_period = nullptr;
    QListWidget* m_folders = nullptr;
    QListWidget* m_files = nullptr;
    QListWidget* m_extensions = nullptr;
    QLineEdit* m_pattern = nullptr;
    QLabel* m_patternMessage = nullptr;
    QListWidget* m_always = nullptr;
    QListWidget* m_never = nullptr;
};

} // namespace corvel::gui

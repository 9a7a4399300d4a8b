#include "preferences_window.h"

#include <QButtonGroup>
#include <QFileDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QVBoxLayout>
#include <cmath>
#include <memory>

#include "app/results_view_controller.h"
#include "engine/file_sizer.h"
#include "gui_text.h"
#include "platform/text.h"
#include "platform/text_format.h"
#include "platform/user_defaults.h"
#include "selection/autoselect_lists.h"
#include "settings/ignore_list.h"
#include "settings/preferences.h"
#include "settings/schedule_period.h"
#include "settings/scheduler.h"

namespace corvel::gui {
namespace {

constexpr int kSliderSteps = 1000;
constexpr int kPathRole = Qt::UserRole + 1;

QPushButton* smallButton(const QString& title, const QString& accessible, QWidget* parent) {
    auto* button = new QPushButton(title, parent);
    button->setAccessibleName(accessible);
    return button;
}

// A list with Add and Remove buttons under it; long paths are shortened in the middle
// (the whole path is the row's tool tip).
QWidget* listWithButtons(QListWidget* list, QPushButton* add, QPushButton* remove, QWidget* parent) {
    list->setTextElideMode(Qt::ElideMiddle);
    list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    list->setUniformItemSizes(true);
    auto* box = new QWidget(parent);
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(list);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(add);
    buttons->addWidget(remove);
    buttons->addStretch();
    layout->addLayout(buttons);
    return box;
}

std::string recordValue(const PropertyValue& record) {
    return record[kRecordValueKey].textOrBytes().value_or(record[kRecordValueKey].toString());
}

QString extensionsText(const PropertyValue& group) {
    QStringList parts;
    if (const auto* extensions = group[kGroupExtentionsKey].asArray())
        for (const auto& e : *extensions)
            parts << qs(e.toString());
    return parts.join(", ");
}

} // namespace

PreferencesWindow::PreferencesWindow(UserDefaults& defaults, CVPreferences& preferences,
                                     CVIgnoreList& ignoreList, CVScheduler* scheduler, QWidget* parent)
    : QDialog(parent), m_defaults(defaults), m_preferences(preferences), m_ignoreList(ignoreList),
      m_scheduler(scheduler) {
    setObjectName("preferencesWindow");
    setWindowTitle(windowText("Preferences_Title"));
    m_choose = [this](bool folder) -> std::optional<std::string> {
        const QString chosen =
            folder ? QFileDialog::getExistingDirectory(this, windowText("Preferences_ChooseFolder"))
                   : QFileDialog::getOpenFileName(this, windowText("Preferences_ChooseFile"));
        if (chosen.isEmpty())
            return std::nullopt;
        return QFile::encodeName(chosen).toStdString();
    };
    m_ask = [this](const std::string& message, const std::string& informative, const std::string& def,
                   const std::string& alt) {
        QMessageBox box(this);
        box.setIcon(QMessageBox::Question);
        box.setText(qs(message));
        box.setInformativeText(qs(informative));
        QPushButton* d = box.addButton(qs(def), QMessageBox::AcceptRole);
        box.addButton(qs(alt), QMessageBox::RejectRole);
        box.setDefaultButton(d);
        box.exec();
        return box.clickedButton() == d ? AlertChoice::Default : AlertChoice::Alternate;
    };

    // A stored ignore list of the wrong type stays in the file untouched.
    m_ignoreEditable =
        !(defaults.hasStoredValueForKey(kIgnoreListKey) && !defaults.dictionaryForKey(kIgnoreListKey));
    NotificationCenter& center = NotificationCenter::defaultCenter();
    m_exclusions = ScopedObserver(
        center, center.addObserver(kItemsAddedToIgnoreListNotification, nullptr, [this](const Notification&) {
            if (isVisible())
                loadIgnoreLists();
        }));

    m_tabs = new QTabWidget(this);
    m_tabs->addTab(makeGeneralPage(), windowText("Preferences_GeneralTab"));
    m_tabs->addTab(makeIgnorePage(), windowText("Preferences_IgnoreTab"));
    m_tabs->addTab(makeSelectionPage(), windowText("Preferences_SelectionTab"));
    auto* close = new QPushButton(windowText("Button_Close"), this);
    connect(close, &QPushButton::clicked, this, &QDialog::close);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_tabs);
    auto* bottom = new QHBoxLayout;
    bottom->addStretch();
    bottom->addWidget(close);
    layout->addLayout(bottom);
    resize(640, 520);
}

void PreferencesWindow::save() {
    CVError error;
    if (!m_defaults.synchronize(&error))
        QMessageBox::warning(this, windowText("Preferences_Title"),
                             windowText("Preferences_SaveFailed").arg(qs(error.localizedDescription())));
}

QWidget* PreferencesWindow::makeGeneralPage() {
    auto* page = new QWidget(this);
    auto* layout = new QVBoxLayout(page);

    auto* sizeBox = new QGroupBox(windowText("Preferences_MinimumSize"), page);
    auto* sizeLayout = new QVBoxLayout(sizeBox);
    m_automatic = new QCheckBox(windowText("Preferences_AutomaticSize"), sizeBox);
    m_automatic->setObjectName("automaticSize");
    m_slider = new QSlider(Qt::Horizontal, sizeBox);
    m_slider->setObjectName("sizeSlider");
    m_slider->setRange(0, kSliderSteps);
    m_slider->setTickInterval(kSliderSteps / 10);
    m_slider->setTickPosition(QSlider::TicksBelow);
    m_slider->setAccessibleName(windowText("Preferences_MinimumSize"));
    m_sizeLabel = new QLabel(sizeBox);
    m_sizeLabel->setObjectName("sizeLabel");
    auto* sliderRow = new QHBoxLayout;
    sliderRow->addWidget(m_slider, 1);
    sliderRow->addWidget(m_sizeLabel);
    m_sizeLabel->setMinimumWidth(110);
    m_sizeHint = new QLabel(windowText("Preferences_AutomaticSizeHint"), sizeBox);
    m_sizeHint->setObjectName("automaticSizeHint");
    m_sizeHint->setWordWrap(true);
    m_sizeHint->setForegroundRole(QPalette::PlaceholderText);
    // It speaks of the automatic choice only: hidden with the slider in use, keeping its room.
    QSizePolicy keepsRoom = m_sizeHint->sizePolicy();
    keepsRoom.setRetainSizeWhenHidden(true);
    m_sizeHint->setSizePolicy(keepsRoom);
    sizeLayout->addWidget(m_automatic);
    sizeLayout->addLayout(sliderRow);
    sizeLayout->addWidget(m_sizeHint);

    auto* removalBox = new QGroupBox(windowText("Preferences_Removal"), page);
    auto* removalLayout = new QVBoxLayout(removalBox);
    m_trash = new QRadioButton(windowText("Preferences_MoveToTrash"), removalBox);
    m_trash->setObjectName("moveToTrash");
    m_delete = new QRadioButton(windowText("Preferences_DeletePermanently"), removalBox);
    m_delete->setObjectName("deletePermanently");
    auto* group = new QButtonGroup(removalBox);
    group->addButton(m_trash);
    group->addButton(m_delete);
    m_removeEmpty = new QCheckBox(windowText("Preferences_RemoveEmptyFolders"), removalBox);
    m_removeEmpty->setObjectName("removeEmptyFolders");
    removalLayout->addWidget(m_trash);
    removalLayout->addWidget(m_delete);
    removalLayout->addWidget(m_removeEmpty);

    auto* reminderBox = new QGroupBox(windowText("Preferences_Reminder"), page);
    auto* reminderLayout = new QFormLayout(reminderBox);
    m_period = new QComboBox(reminderBox);
    m_period->setObjectName("reminderPeriod");
    for (std::uint64_t option = 0; option < CVSchedulePeriod::kOptionCount; ++option)
        m_period->addItem(qs(CVSchedulePeriod(option).optionDescription()),
                          QVariant::fromValue<qulonglong>(option));
    reminderLayout->addRow(windowText("Preferences_RemindMe"), m_period);

    layout->addWidget(sizeBox);
    layout->addWidget(removalBox);
    layout->addWidget(reminderBox);
    layout->addStretch();

    m_loading = true;
    const bool manual = m_preferences.overrideMinSizeDefining();
    m_automatic->setChecked(!manual);
    m_slider->setValue(
        static_cast<int>(std::lround(m_defaults.doubleForKey(kMinScanSizeKey) * kSliderSteps)));
    m_slider->setEnabled(manual);
    m_sizeHint->setHidden(manual);
    (m_preferences.moveDuplicatesToTrash() ? m_trash : m_delete)->setChecked(true);
    m_removeEmpty->setChecked(m_preferences.removeEmptyFolders());
    const auto period = static_cast<std::uint64_t>(std::max<std::int64_t>(0, m_preferences.schedulePeriod()));
    m_period->setCurrentIndex(static_cast<int>(std::min(period, CVSchedulePeriod::kOptionCount - 1)));
    updateSizeLabel();
    m_loading = false;

    connect(m_automatic, &QCheckBox::toggled, this, [this](bool automatic) {
        if (m_loading)
            return;
        m_slider->setEnabled(!automatic);
        m_sizeHint->setHidden(!automatic);
        m_defaults.setBool(!automatic, kOverrideMinSizeKey);
        updateSizeLabel();
        save();
    });
    connect(m_slider, &QSlider::valueChanged, this, [this](int value) {
        if (m_loading)
            return;
        m_defaults.setDouble(static_cast<double>(value) / kSliderSteps, kMinScanSizeKey);
        updateSizeLabel();
        save();
    });
    connect(m_trash, &QRadioButton::toggled, this, [this](bool trash) {
        if (m_loading)
            return;
        m_preferences.setMoveDuplicatesToTrash(trash);
        save();
    });
    connect(m_removeEmpty, &QCheckBox::toggled, this, [this](bool on) {
        if (m_loading)
            return;
        m_defaults.setBool(on, kRemoveEmptyFoldersKey);
        save();
    });
    connect(m_period, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (m_loading || index < 0)
            return;
        const auto option = m_period->itemData(index).toULongLong();
        m_preferences.setSchedulePeriod(static_cast<std::int64_t>(option));
        save();
        if (m_scheduler)
            m_scheduler->setSchedulePeriod(std::make_shared<CVSchedulePeriod>(option));
    });
    return page;
}

void PreferencesWindow::updateSizeLabel() {
    if (m_automatic->isChecked()) {
        m_sizeLabel->setText(windowText("Preferences_Automatic"));
        return;
    }
    const double x = static_cast<double>(m_slider->value()) / kSliderSteps;
    const std::uint64_t bytes = CVPreferences::minScanSizeFromFloat(x);
    m_sizeLabel->setText(bytes == 0 ? windowText("Preferences_AnySize")
                                    : qs(HVFileSizer::displayItemSizeFromSize(bytes)));
}

QWidget* PreferencesWindow::makeIgnorePage() {
    auto* page = new QWidget(this);
    auto* layout = new QVBoxLayout(page);
    if (!m_ignoreEditable) {
        auto* warning =
            new QLabel(windowText("Preferences_IgnoreListUnreadable").arg(qs(m_defaults.path())), page);
        warning->setObjectName("ignoreListUnreadable");
        warning->setWordWrap(true);
        layout->addWidget(warning);
    }
    auto* lists = new QTabWidget(page);
    m_folders = new QListWidget(page);
    m_folders->setObjectName("ignoredFolders");
    m_folders->setAccessibleName(windowText("Preferences_IgnoredFolders"));
    m_files = new QListWidget(page);
    m_files->setObjectName("ignoredFiles");
    m_files->setAccessibleName(windowText("Preferences_IgnoredFiles"));
    m_extensions = new QListWidget(page);
    m_extensions->setObjectName("ignoredExtensions");
    m_extensions->setAccessibleName(windowText("Preferences_IgnoredExtensions"));

    auto* addFolder =
        smallButton(windowText("Button_AddFolder"), windowText("Preferences_AddIgnoredFolder"), page);
    auto* removeFolder =
        smallButton(windowText("Button_Remove"), windowText("Preferences_RemoveIgnoredFolder"), page);
    auto* addFile = smallButton(windowText("Button_AddFile"), windowText("Preferences_AddIgnoredFile"), page);
    auto* removeFile =
        smallButton(windowText("Button_Remove"), windowText("Preferences_RemoveIgnoredFile"), page);
    auto* addExtensions =
        smallButton(windowText("Button_AddExtensions"), windowText("Preferences_AddExtensions"), page);
    auto* removeExtensions =
        smallButton(windowText("Button_Remove"), windowText("Preferences_RemoveExtensions"), page);
    lists->addTab(listWithButtons(m_folders, addFolder, removeFolder, page),
                  windowText("Preferences_IgnoredFolders"));
    lists->addTab(listWithButtons(m_files, addFile, removeFile, page),
                  windowText("Preferences_IgnoredFiles"));
    lists->addTab(listWithButtons(m_extensions, addExtensions, removeExtensions, page),
                  windowText("Preferences_IgnoredExtensions"));
    layout->addWidget(lists, 1);

    auto* patternLabel = new QLabel(windowText("Preferences_IgnorePattern"), page);
    m_pattern = new QLineEdit(page);
    m_pattern->setObjectName("ignorePattern");
    m_pattern->setAccessibleName(windowText("Preferences_IgnorePattern"));
    m_pattern->setPlaceholderText(windowText("Preferences_IgnorePatternPlaceholder"));
    m_pattern->setText(qs(m_defaults.stringForKey(kIgnoreRegexpStringKey).value_or("")));
    patternLabel->setBuddy(m_pattern);
    m_patternMessage = new QLabel(page);
    m_patternMessage->setObjectName("patternMessage");
    m_patternMessage->setWordWrap(true);
    layout->addWidget(patternLabel);
    layout->addWidget(m_pattern);
    layout->addWidget(m_patternMessage);

    loadIgnoreLists();
    for (QWidget* w :
         std::initializer_list<QWidget*>{m_folders, m_files, m_extensions, addFolder, removeFolder, addFile,
                                         removeFile, addExtensions, removeExtensions})
        w->setEnabled(m_ignoreEditable);

    connect(addFolder, &QPushButton::clicked, this, &PreferencesWindow::addIgnoredFolder);
    connect(addFile, &QPushButton::clicked, this, &PreferencesWindow::addIgnoredFile);
    connect(addExtensions, &QPushButton::clicked, this, [this] {
        bool ok = false;
        const QString text =
            QInputDialog::getText(this, windowText("Preferences_AddExtensions"),
                                  windowText("Preferences_ExtensionsPrompt"), QLineEdit::Normal, {}, &ok);
        if (ok)
            addExtensionGroup(text);
    });
    connect(removeFolder, &QPushButton::clicked, this, [this] { removeSelectedIgnored(m_folders); });
    connect(removeFile, &QPushButton::clicked, this, [this] { removeSelectedIgnored(m_files); });
    connect(removeExtensions, &QPushButton::clicked, this, [this] { removeSelectedIgnored(m_extensions); });
    for (QListWidget* list : {m_folders, m_files, m_extensions})
        connect(list, &QListWidget::itemChanged, this, [this] {
            if (!m_loading)
                saveIgnoreLists();
        });
    connect(m_pattern, &QLineEdit::editingFinished, this, &PreferencesWindow::applyPattern);
    return page;
}

void PreferencesWindow::loadIgnoreLists() {
    m_loading = true;
    auto fill = [](QListWidget* list, const PropertyValue::Array& records, bool extensions) {
        list->clear();
        for (const auto& record : records) {
            auto* item =
                new QListWidgetItem(extensions ? extensionsText(record) : qs(recordValue(record)), list);
            item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
            item->setCheckState(record[kRecordEnabledKey].toBool() ? Qt::Checked : Qt::Unchecked);
            item->setToolTip(item->text());
            item->setData(kPathRole, QVariant::fromValue(QByteArray::fromStdString(
                                         extensions ? std::string() : recordValue(record))));
        }
    };
    fill(m_folders, m_ignoreList.excludePathsList(), false);
    fill(m_files, m_ignoreList.excludeFilesList(), false);
    fill(m_extensions, m_ignoreList.excludeExtentionsGroups(), true);
    m_loading = false;
}

void PreferencesWindow::showEvent(QShowEvent* event) {
    loadIgnoreLists();
    QDialog::showEvent(event);
}

void PreferencesWindow::saveIgnoreLists() {
    if (!m_ignoreEditable)
        return;
    // The check boxes go back into the records (their order is the list's).
    auto apply = [](QListWidget* list, PropertyValue::Array& records) {
        for (int row = 0; row < list->count() && static_cast<std::size_t>(row) < records.size(); ++row)
            records[static_cast<std::size_t>(row)].set(kRecordEnabledKey,
                                                       list->item(row)->checkState() == Qt::Checked);
    };
    apply(m_folders, m_ignoreList.excludePathsList());
    apply(m_files, m_ignoreList.excludeFilesList());
    apply(m_extensions, m_ignoreList.excludeExtentionsGroups());
    m_ignoreList.synchronize();
}

void PreferencesWindow::addIgnoredFolder() {
    if (!m_ignoreEditable)
        return;
    if (auto path = m_choose(true)) {
        for (auto& record : CVIgnoreList::pathsRecordsWithURLs({*path}))
            m_ignoreList.excludePathsList().push_back(record);
        m_ignoreList.synchronize();
        loadIgnoreLists();
    }
}

void PreferencesWindow::addIgnoredFile() {
    if (!m_ignoreEditable)
        return;
    if (auto path = m_choose(false)) {
        for (auto& record : CVIgnoreList::pathsRecordsWithURLs({*path}))
            m_ignoreList.excludeFilesList().push_back(record);
        m_ignoreList.synchronize();
        loadIgnoreLists();
    }
}

void PreferencesWindow::addExtensionGroup(const QString& extensions) {
    if (!m_ignoreEditable)
        return;
    PropertyValue::Array list;
    for (QString part : extensions.split(QRegularExpression("[,;\\s]+"), Qt::SkipEmptyParts)) {
        while (part.startsWith('.') || part.startsWith('*'))
            part.remove(0, 1);
        if (!part.isEmpty())
            list.emplace_back(part.toLower().toStdString());
    }
    if (list.empty())
        return;
    m_ignoreList.excludeExtentionsGroups().push_back(
        CVIgnoreList::generateNewExcludeGroupWithExtensions(list));
    m_ignoreList.synchronize();
    loadIgnoreLists();
}

void PreferencesWindow::removeSelectedIgnored(QListWidget* list) {
    if (!m_ignoreEditable)
        return;
    const int row = list->currentRow();
    if (row < 0)
        return;
    PropertyValue::Array& records = list == m_folders ? m_ignoreList.excludePathsList()
                                    : list == m_files ? m_ignoreList.excludeFilesList()
                                                      : m_ignoreList.excludeExtentionsGroups();
    if (static_cast<std::size_t>(row) >= records.size())
        return;
    records.erase(records.begin() + row);
    m_ignoreList.synchronize();
    loadIgnoreLists();
}

void PreferencesWindow::applyPattern() {
    const std::string pattern = m_pattern->text().trimmed().toStdString();
    if (pattern == m_defaults.stringForKey(kIgnoreRegexpStringKey).value_or("")) {
        m_patternMessage->clear();
        return;
    }
    if (!pattern.empty()) {
        CVError error;
        if (!RegularExpression::compile(pattern, &error)) {
            // The stored pattern stays; the user sees why this one was refused.
            m_patternMessage->setText(
                windowText("Preferences_PatternRefused").arg(qs(error.localizedDescription())));
            return;
        }
    }
    m_patternMessage->clear();
    if (pattern.empty())
        m_defaults.removeObjectForKey(kIgnoreRegexpStringKey);
    else
        m_defaults.setObject(PropertyValue(pattern), kIgnoreRegexpStringKey);
    save();
}

QWidget* PreferencesWindow::makeSelectionPage() {
    auto* page = new QWidget(this);
    auto* layout = new QVBoxLayout(page);
    auto* intro = new QLabel(windowText("Preferences_SelectionIntro"), page);
    intro->setWordWrap(true);
    layout->addWidget(intro);
    auto* row = new QHBoxLayout;
    for (std::int32_t category : {kAlwaysSelect, kNeverSelect}) {
        const bool always = category == kAlwaysSelect;
        auto* box =
            new QGroupBox(windowText(always ? "Preferences_AlwaysSelect" : "Preferences_NeverSelect"), page);
        auto* boxLayout = new QVBoxLayout(box);
        auto* list = new QListWidget(box);
        list->setObjectName(always ? "alwaysSelect" : "neverSelect");
        list->setAccessibleName(box->title());
        (always ? m_always : m_never) = list;
        auto* add = smallButton(windowText("Button_AddFolder"), box->title(), box);
        auto* remove = smallButton(windowText("Button_Remove"), box->title(), box);
        boxLayout->addWidget(listWithButtons(list, add, remove, box));
        row->addWidget(box);
        connect(add, &QPushButton::clicked, this, [this, category] {
            if (auto path = m_choose(true))
                addSelectionFolder(category, *path);
        });
        connect(remove, &QPushButton::clicked, this,
                [this, category] { removeSelectedSelectionFolder(category); });
        connect(list, &QListWidget::itemChanged, this, [this](QListWidgetItem* item) {
            if (m_loading)
                return;
            CVAutoselectLists lists(m_defaults);
            lists.setEnable(item->checkState() == Qt::Checked,
                            item->data(kPathRole).toByteArray().toStdString());
            save();
        });
    }
    layout->addLayout(row, 1);
    loadSelectionLists();
    return page;
}

void PreferencesWindow::loadSelectionLists() {
    m_loading = true;
    m_always->clear();
    m_never->clear();
    CVAutoselectLists lists(m_defaults);
    for (const auto& item : lists.list()) {
        QListWidget* list = item.category == kAlwaysSelect ? m_always : m_never;
        auto* row = new QListWidgetItem(QFile::decodeName(QByteArray::fromStdString(item.path)), list);
        row->setFlags(row->flags() | Qt::ItemIsUserCheckable);
        row->setCheckState(item.enabled ? Qt::Checked : Qt::Unchecked);
        row->setToolTip(row->text());
        row->setData(kPathRole, QByteArray::fromStdString(item.path));
    }
    m_loading = false;
}

void PreferencesWindow::addSelectionFolder(std::int32_t category, const std::string& path) {
    CVAutoselectLists lists(m_defaults);
    const auto item = CVAutoselectListItem::autoselectItemWithPath(path, category);
    CVAutoselectListItem related;
    auto items = lists.list();
    auto drop = [&items](const CVAutoselectListItem& gone) {
        std::erase_if(items, [&](const CVAutoselectListItem& i) {
            return i.category == gone.category && sameAutoselectFolder(i.path, gone.path);
        });
    };
    switch (lists.relationForItem(item, &related)) {
    case kRelationNone:
        break;
    case kRelationSameEntry:
        drop(related);
        break;
    case kRelationInOtherList:
        if (m_ask(formatf(localized("AlertMessageText_PathInAnotherList"), related.path),
                  localized("AlertInformativeText_RemoveFromOtherList"),
                  localized("ButtonTitle_SwitchList", "Buttons"),
                  localized("ButtonTitle_Cancel", "Buttons")) != AlertChoice::Default)
            return;
        drop(related);
        break;
    case kRelationContainsAlways:
        if (m_ask(formatf(localized("AlertMessageText_SubPathInAlwaysSelect"), item.path, related.path),
                  localized("AlertInformativeText_SubPathInAlwaysSelect"),
                  localized("ButtonTitle_AddAnyway", "Buttons"),
                  localized("ButtonTitle_Cancel", "Buttons")) != AlertChoice::Default)
            return;
        break;
    case kRelationInsideNever:
        if (m_ask(formatf(localized("AlertMessageText_SuperPathInNeverSelect"), item.path, related.path),
                  localized("AlertInformativeText_SuperPathInNeverSelect"),
                  localized("ButtonTitle_AddAnyway", "Buttons"),
                  localized("ButtonTitle_Cancel", "Buttons")) != AlertChoice::Default)
            return;
        break;
    }
    items.push_back(item);
    lists.setAutoselectList(items);
    save();
    loadSelectionLists();
}

void PreferencesWindow::removeSelectedSelectionFolder(std::int32_t category) {
    QListWidget* list = category == kAlwaysSelect ? m_always : m_never;
    QListWidgetItem* current = list->currentItem();
    if (!current)
        return;
    const std::string path = current->data(kPathRole).toByteArray().toStdString();
    CVAutoselectLists lists(m_defaults);
    auto items = lists.list();
    std::erase_if(items,
                  [&](const CVAutoselectListItem& i) { return i.category == category && i.path == path; });
    lists.setAutoselectList(items);
    save();
    loadSelectionLists();
}

} // namespace corvel::gui

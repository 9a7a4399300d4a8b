#include "results_models.h"

#include <QDateTime>
#include <QFont>
#include <QLocale>

#include "app/groups_sorting.h"
#include "engine/file_sizer.h"
#include "gui_text.h"
#include "results/meta_group.h"

namespace corvel::gui {

namespace {

constexpr const char* kModifiedFormat = "yyyy-MM-dd HH:mm";

QString categoryName(std::int32_t id) {
    return text(CVMetaGroup::nameKey(id));
}

} // namespace

QString fileNameOf(const CVFile& file) {
    const QString path = QString::fromStdString(file.path());
    return path.mid(path.lastIndexOf('/') + 1);
}

QString folderOf(const CVFile& file) {
    const QString path = QString::fromStdString(file.path());
    const qsizetype slash = path.lastIndexOf('/');
    return slash <= 0 ? QStringLiteral("/") : path.left(slash);
}

// ---- Groups -------------------------------------------------------------------------------

void GroupsModel::setGroups(const std::vector<std::shared_ptr<CVGroup>>* groups) {
    beginResetModel();
    m_groups = groups;
    endResetModel();
}

void GroupsModel::refresh() {
    if (rowCount() > 0)
        Q_EMIT dataChanged(index(0, 0), index(rowCount() - 1, ColumnCount - 1));
}

std::shared_ptr<CVGroup> GroupsModel::groupAt(int row) const {
    if (!m_groups || row < 0 || static_cast<std::size_t>(row) >= m_groups->size())
        return nullptr;
    return (*m_groups)[static_cast<std::size_t>(row)];
}

std::int64_t GroupsModel::sortTypeForColumn(int column) {
    switch (column) {
    case Name:
        return kSortByName;
    case Type:
        return kSortByType;
    case Copies:
        return kSortByCount;
    case Selected:
        return kSortBySelected;
    case Path:
        return kSortByPath;
    default:
        return kSortByTotalSize;
    }
}

int GroupsModel::columnForSortType(std::int64_t type) {
    for (int column = 0; column < ColumnCount; ++column)
        if (sortTypeForColumn(column) == type)
            return column;
    return Size;
}

int GroupsModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() || !m_groups ? 0 : static_cast<int>(m_groups->size());
}

int GroupsModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant GroupsModel::data(const QModelIndex& index, int role) const {
    const auto group = groupAt(index.row());
    if (!group)
        return {};
    if (role == Qt::TextAlignmentRole)
        return index.column() == Copies || index.column() == Selected || index.column() == Size
                   ? QVariant(Qt::AlignRight | Qt::AlignVCenter)
                   : QVariant(Qt::AlignLeft | Qt::AlignVCenter);
    if (role == Qt::ToolTipRole && (index.column() == Path || index.column() == Name))
        return qs(index.column() == Path ? group->commonPath() : group->groupPath());
    if (role != Qt::DisplayRole && role != Qt::AccessibleTextRole)
        return {};
    switch (index.column()) {
    case Name:
        return qs(group->name());
    case Type:
        return categoryName(group->metaGroupType());
    case Copies:
        return QVariant::fromValue<qulonglong>(group->childrenCount());
    case Selected: {
        const std::int64_t marked = group->filesToRemoveCount();
        return marked > 0 ? QVariant::fromValue<qlonglong>(marked) : QVariant(QString());
    }
    case Size:
        return qs(stringWithSize(group->totalSize()));
    case Path:
        return qs(group->commonPath());
    default:
        return {};
    }
}

QVariant GroupsModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    static const char* const keys[] = {"Results_ColumnName",     "Results_ColumnType", "Results_ColumnCopies",
                                       "Results_ColumnSelected", "Results_ColumnSize", "Results_ColumnPath"};
    return section >= 0 && section < ColumnCount ? windowText(keys[section]) : QVariant();
}

// ---- Files --------------------------------------------------------------------------------

void FilesModel::setFiles(const std::vector<std::shared_ptr<CVFile>>* files) {
    beginResetModel();
    m_files = files;
    endResetModel();
}

void FilesModel::refresh() {
    if (rowCount() > 0)
        Q_EMIT dataChanged(index(0, 0), index(rowCount() - 1, ColumnCount - 1));
}

std::shared_ptr<CVFile> FilesModel::fileAt(int row) const {
    if (!m_files || row < 0 || static_cast<std::size_t>(row) >= m_files->size())
        return nullptr;
    return (*m_files)[static_cast<std::size_t>(row)];
}

int FilesModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() || !m_files ? 0 : static_cast<int>(m_files->size());
}

int FilesModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant FilesModel::data(const QModelIndex& index, int role) const {
    const auto file = fileAt(index.row());
    if (!file)
        return {};
    const bool gone = file->wasRemoved() || file->wasRemovedOutside();
    if (role == Qt::CheckStateRole && index.column() == Name)
        return file->needToRemove() ? Qt::Checked : Qt::Unchecked;
    if (role == Qt::TextAlignmentRole)
        return index.column() == Size ? QVariant(Qt::AlignRight | Qt::AlignVCenter)
                                      : QVariant(Qt::AlignLeft | Qt::AlignVCenter);
    if (role == Qt::FontRole && gone) {
        QFont font;
        font.setStrikeOut(true);
        return font;
    }
    if (role == Qt::ToolTipRole)
        return gone ? windowText("Results_FileGone") : qs(file->path());
    if (role != Qt::DisplayRole && role != Qt::AccessibleTextRole)
        return {};
    switch (index.column()) {
    case Name:
        return fileNameOf(*file);
    case Folder:
        return folderOf(*file);
    case Size:
        return qs(stringWithSize(file->size()));
    case Modified:
        return QLocale().toString(QDateTime::fromSecsSinceEpoch(file->statMTime()), kModifiedFormat);
    default:
        return {};
    }
}

bool FilesModel::setData(const QModelIndex& index, const QVariant&, int role) {
    const auto file = fileAt(index.row());
    if (role != Qt::CheckStateRole || index.column() != Name || !file || !m_toggle)
        return false;
    // The controller decides; the box shows its answer when the rows are refreshed.
    m_toggle(file);
    Q_EMIT dataChanged(index, index);
    return true;
}

Qt::ItemFlags FilesModel::flags(const QModelIndex& index) const {
    Qt::ItemFlags flags = QAbstractTableModel::flags(index);
    const auto file = fileAt(index.row());
    if (index.column() == Name && file && !file->wasRemoved() && !file->wasRemovedOutside() &&
        (!file->removeForbidden() || file->needToRemove()))
        flags |= Qt::ItemIsUserCheckable;
    return flags;
}

QVariant FilesModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    static const char* const keys[] = {"Results_ColumnFile", "Results_ColumnFolder", "Results_ColumnSize",
                                       "Results_ColumnModified"};
    return section >= 0 && section < ColumnCount ? windowText(keys[section]) : QVariant();
}

} // namespace corvel::gui

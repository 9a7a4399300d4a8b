#pragma once
// Table models over what the results view controller shows: the groups of the chosen
// category and the files of the chosen group. They hold a pointer to the controller's
// own list (the results collection's groups and files, never a copy of their data) and
// read every cell from the nodes when the view paints it, so 50,000 groups cost nothing
// until they scroll into sight. The list must outlive the model's use of it: the face
// resets the model whenever the controller shows a new list. GUI thread.

#include <QAbstractTableModel>
#include <functional>
#include <memory>
#include <vector>

#include "engine/group.h"

namespace corvel::gui {

// The file's own name and the folder that holds it, as the user reads them.
QString fileNameOf(const CVFile& file);
QString folderOf(const CVFile& file);

// The groups table. Its columns map onto the controller's six sort keys.
class GroupsModel final : public QAbstractTableModel {
public:
    enum Column { Name, Type, Copies, Selected, Size, Path, ColumnCount };

    explicit GroupsModel(QObject* parent = nullptr) : QAbstractTableModel(parent) {}

    // The controller's list; nullptr shows nothing.
    void setGroups(const std::vector<std::shared_ptr<CVGroup>>* groups);
    // The marks and counts changed: every visible cell is read again.
    void refresh();
    std::shared_ptr<CVGroup> groupAt(int row) const;

    // The sort key (GroupSortType) of a column, and the column of a key.
    static std::int64_t sortTypeForColumn(int column);
    static int columnForSortType(std::int64_t type);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    const std::vector<std::shared_ptr<CVGroup>>* m_groups = nullptr;
};

// The files of the selected group, with a check box for the mark. Ticking calls the
// toggle handler (the controller's switchFileSelectionAction); the box itself follows
// the file's needToRemove when the rows are refreshed.
class FilesModel final : public QAbstractTableModel {
public:
    enum Column { Name, Folder, Size, Modified, ColumnCount };

    explicit FilesModel(QObject* parent = nullptr) : QAbstractTableModel(parent) {}

    void setFiles(const std::vector<std::shared_ptr<CVFile>>* files);
    void refresh();
    void setToggleHandler(std::function<void(const std::shared_ptr<CVFile>&)> handler) {
        m_toggle = std::move(handler);
    }
    std::shared_ptr<CVFile> fileAt(int row) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    const std::vector<std::shared_ptr<CVFile>>* m_files = nullptr;
    std::function<void(const std::shared_ptr<CVFile>&)> m_toggle;
};

} // namespace corvel::gui

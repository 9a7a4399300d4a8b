#pragma once
// DropZone: the scan page's target area, the face of RGScanItemControl. It takes folders
// dragged from a file manager (local URLs that are folders; anything else is refused at
// the drag), shows one target by its icon and name and several by a fan of icons and the
// count text, draws the progress ring while scanning and the finish mark after. Keyboard:
// it takes focus; Delete takes the last batch away, the menu key opens its context menu.
// GUI thread.

#include <QWidget>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/scan_item_control.h"

class QMimeData;

namespace corvel::gui {

class DropZone final : public QWidget, public ScanItemControlView {
public:
    explicit DropZone(QWidget* parent = nullptr);

    // Not owned; set once the scan window controller exists.
    void setControl(RGScanItemControl* control) { m_control = control; }
    void setDropsEnabled(bool enabled);
    // A batch of folders added (dropped or chosen), which Delete takes away again.
    void rememberBatch(const std::vector<std::string>& paths) { m_batches.push_back(paths); }

    // The folders a drag carries: its local URLs that are folders, in order.
    static std::vector<std::string> foldersInMimeData(const QMimeData* data);

    // ScanItemControlView.
    void startArrowFlyAway() override;
    void setupArrowAnimation() override;
    void showTargets(const std::vector<std::string>& paths, const std::string& name) override;
    void startScanningAnimation() override;
    void setProgress(double fraction) override;
    void playFinishMark(FinishMark mark) override;
    void resetAnimation() override;

    // What it shows (for tests and accessibility).
    const std::vector<std::string>& targets() const { return m_paths; }
    const QString& targetName() const { return m_name; }
    double progress() const { return m_progress; }
    bool scanning() const { return m_scanning; }
    std::optional<FinishMark> finishMark() const { return m_mark; }

    QSize sizeHint() const override { return {300, 300}; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;

private:
    void updateAccessibleText();

    RGScanItemControl* m_control = nullptr;
    std::vector<std::string> m_paths;
    // The batches added, newest last, for Delete.
    std::vector<std::vector<std::string>> m_batches;
    QString m_name;
    double m_progress = 0;
    bool m_scanning = false;
    bool m_dropsEnabled = true;
    bool m_dragHover = false;
    std::optional<FinishMark> m_mark;
};

} // namespace corvel::gui

#include "drop_zone.h"

#include <QContextMenuEvent>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QMenu>
#include <QMimeData>
#include <QPainter>
#include <QPainterPath>
#include <QUrl>
#include <algorithm>
#include <sys/stat.h>

#include "gui_text.h"
#include "local_paths.h"

namespace corvel::gui {

DropZone::DropZone(QWidget* parent) : QWidget(parent) {
    setAcceptDrops(true);
    setFocusPolicy(Qt::StrongFocus);
    setMinimumSize(240, 240);
    setAccessibleName(windowText("DropZone_AccessibleName"));
    updateAccessibleText();
}

std::vector<std::string> DropZone::foldersInMimeData(const QMimeData* data) {
    std::vector<std::string> folders;
    if (!data || !data->hasUrls())
        return folders;
    for (const QUrl& url : data->urls()) {
        const auto path = localPathFromUrl(url);
        struct stat st {};
        // A link to a folder counts: the scan resolves its roots.
        if (path && ::stat(path->c_str(), &st) == 0 && S_ISDIR(st.st_mode))
            folders.push_back(*path);
    }
    return folders;
}

void DropZone::setDropsEnabled(bool enabled) {
    m_dropsEnabled = enabled;
    setAcceptDrops(enabled);
}

void DropZone::startArrowFlyAway() {
    update();
}
void DropZone::setupArrowAnimation() {
    update();
}

void DropZone::showTargets(const std::vector<std::string>& paths, const std::string& name) {
    m_paths = paths;
    m_name = qs(name);
    m_mark.reset();
    // What is no longer a target leaves the batches.
    for (auto& batch : m_batches)
        std::erase_if(batch, [&](const std::string& p) {
            return std::find(paths.begin(), paths.end(), p) == paths.end();
        });
    std::erase_if(m_batches, [](const auto& batch) { return batch.empty(); });
    updateAccessibleText();
    update();
}

void DropZone::startScanningAnimation() {
    m_scanning = true;
    m_progress = 0;
    m_mark.reset();
    update();
}

void DropZone::setProgress(double fraction) {
    m_progress = std::clamp(fraction, 0.0, 1.0);
    update();
}

void DropZone::playFinishMark(FinishMark mark) {
    m_scanning = false;
    m_mark = mark;
    update();
}

void DropZone::resetAnimation() {
    m_paths.clear();
    m_batches.clear();
    m_name.clear();
    m_progress = 0;
    m_scanning = false;
    m_mark.reset();
    updateAccessibleText();
    update();
    if (m_control)
        m_control->animationDidReset();
}

void DropZone::updateAccessibleText() {
    setAccessibleDescription(m_name.isEmpty() ? text("StatusTextViewSubStatus_AddingFolders") : m_name);
    setToolTip(m_paths.empty() ? QString() : [&] {
        QStringList lines;
        for (const auto& p : m_paths)
            lines << QString::fromStdString(p);
        return lines.join('\n');
    }());
}

void DropZone::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPalette& pal = palette();
    const int side = std::min(width(), height()) - 16;
    const QRectF square((width() - side) / 2.0, (height() - side) / 2.0, side, side);
    const QPointF centre = square.center();

    // The zone: a dashed circle, solid while a drag hovers.
    QPen border(m_dragHover ? pal.color(QPalette::Highlight) : pal.color(QPalette::Mid), m_dragHover ? 3 : 2,
                m_dragHover ? Qt::SolidLine : Qt::DashLine);
    painter.setPen(border);
    painter.setBrush(pal.color(QPalette::Base));
    painter.drawEllipse(square.adjusted(4, 4, -4, -4));
    if (hasFocus()) {
        painter.setPen(QPen(pal.color(QPalette::Highlight), 1, Qt::DotLine));
        painter.setBrush(Qt::NoBrush);
        painter.drawEllipse(square.adjusted(1, 1, -1, -1));
    }

    // The progress ring while scanning (and full after a scan).
    if (m_scanning || m_mark) {
        const QRectF ring = square.adjusted(10, 10, -10, -10);
        painter.setPen(QPen(pal.color(QPalette::Midlight), 8, Qt::SolidLine, Qt::RoundCap));
        painter.setBrush(Qt::NoBrush);
        painter.drawEllipse(ring);
        const double fraction = m_mark ? 1.0 : m_progress;
        QColor colour = pal.color(QPalette::Highlight);
        if (m_mark == FinishMark::Error)
            colour = QColor(0xc0, 0x39, 0x2b);
        painter.setPen(QPen(colour, 8, Qt::SolidLine, Qt::RoundCap));
        painter.drawArc(ring, 90 * 16, -static_cast<int>(fraction * 360 * 16));
    }

    const double iconSide = side * 0.36;
    if (m_paths.empty()) {
        // An arrow pointing into the zone.
        painter.setPen(Qt::NoPen);
        painter.setBrush(pal.color(QPalette::Mid));
        QPainterPath arrow;
        const double w = iconSide * 0.35, h = iconSide;
        arrow.moveTo(centre.x() - w / 2, centre.y() - h / 2);
        arrow.lineTo(centre.x() + w / 2, centre.y() - h / 2);
        arrow.lineTo(centre.x() + w / 2, centre.y());
        arrow.lineTo(centre.x() + w * 1.2, centre.y());
        arrow.lineTo(centre.x(), centre.y() + h / 2);
        arrow.lineTo(centre.x() - w * 1.2, centre.y());
        arrow.lineTo(centre.x() - w / 2, centre.y());
        arrow.closeSubpath();
        painter.drawPath(arrow);
        return;
    }

    // One folder's icon, or a fan of up to three for several.
    QFileIconProvider icons;
    const int shown = static_cast<int>(std::min<std::size_t>(m_paths.size(), 3));
    for (int i = shown - 1; i >= 0; --i) {
        const QIcon icon =
            icons.icon(QFileInfo(QString::fromStdString(m_paths[static_cast<std::size_t>(i)])));
        const double offset = (i - (shown - 1) / 2.0) * iconSide * 0.28;
        const QRectF target(centre.x() - iconSide / 2 + offset, centre.y() - iconSide * 0.75 - i * 4,
                            iconSide, iconSide);
        icon.paint(&painter, target.toRect());
    }
    QFont font = painter.font();
    font.setBold(true);
    painter.setFont(font);
    painter.setPen(pal.color(QPalette::Text));
    const QRectF label(square.left() + side * 0.15, centre.y() + iconSide * 0.35, side * 0.7, iconSide * 0.5);
    painter.drawText(
        label, Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap,
        painter.fontMetrics().elidedText(m_name, Qt::ElideMiddle, static_cast<int>(label.width() * 2)));

    if (m_mark) {
        const QRectF badge(centre.x() + iconSide * 0.35, centre.y() - iconSide * 0.95, iconSide * 0.4,
                           iconSide * 0.4);
        const QColor colour = *m_mark == FinishMark::Found     ? QColor(0x27, 0xae, 0x60)
                              : *m_mark == FinishMark::Nothing ? pal.color(QPalette::Mid)
                                                               : QColor(0xc0, 0x39, 0x2b);
        painter.setPen(Qt::NoPen);
        painter.setBrush(colour);
        painter.drawEllipse(badge);
        painter.setPen(QPen(Qt::white, 3, Qt::SolidLine, Qt::RoundCap));
        const QPointF c = badge.center();
        const double r = badge.width() * 0.25;
        if (*m_mark == FinishMark::Found) {
            painter.drawLine(QPointF(c.x() - r, c.y()), QPointF(c.x() - r / 3, c.y() + r * 0.7));
            painter.drawLine(QPointF(c.x() - r / 3, c.y() + r * 0.7), QPointF(c.x() + r, c.y() - r * 0.6));
        } else if (*m_mark == FinishMark::Nothing) {
            painter.drawLine(QPointF(c.x() - r, c.y()), QPointF(c.x() + r, c.y()));
        } else {
            painter.drawLine(QPointF(c.x() - r, c.y() - r), QPointF(c.x() + r, c.y() + r));
            painter.drawLine(QPointF(c.x() - r, c.y() + r), QPointF(c.x() + r, c.y() - r));
        }
    }
}

void DropZone::dragEnterEvent(QDragEnterEvent* event) {
    if (m_dropsEnabled && !foldersInMimeData(event->mimeData()).empty()) {
        event->acceptProposedAction();
        m_dragHover = true;
        update();
    } else {
        event->ignore();
    }
}

void DropZone::dragLeaveEvent(QDragLeaveEvent*) {
    m_dragHover = false;
    update();
}

void DropZone::dropEvent(QDropEvent* event) {
    m_dragHover = false;
    update();
    const auto folders = foldersInMimeData(event->mimeData());
    if (!m_dropsEnabled || folders.empty() || !m_control) {
        event->ignore();
        return;
    }
    event->acceptProposedAction();
    rememberBatch(folders);
    m_control->addFoldersForScan(folders, false);
}

void DropZone::mousePressEvent(QMouseEvent* event) {
    if (m_control && event->button() == Qt::LeftButton)
        m_control->mouseDown();
    QWidget::mousePressEvent(event);
}

void DropZone::keyPressEvent(QKeyEvent* event) {
    if ((event->key() == Qt::Key_Delete || event->key() == Qt::Key_Backspace) && m_control &&
        m_dropsEnabled && !m_batches.empty()) {
        const auto batch = m_batches.back();
        m_batches.pop_back();
        m_control->removeLastDroppedArray(batch);
        return;
    }
    QWidget::keyPressEvent(event);
}

void DropZone::contextMenuEvent(QContextMenuEvent* event) {
    if (!m_control)
        return;
    QMenu menu(this);
    QAction* refresh = menu.addAction(windowText("DropZone_ClearFolders"));
    refresh->setEnabled(m_control->validateMenuItem(RGScanItemControl::kRefreshMenuItemTag));
    if (menu.exec(event->globalPos()) == refresh)
        m_control->refreshMenuAction();
}

} // namespace corvel::gui

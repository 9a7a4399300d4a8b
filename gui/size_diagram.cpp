#include "size_diagram.h"

#include <QHelpEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QToolTip>
#include <cmath>
#include <numbers>

#include "engine/file_sizer.h"
#include "gui_text.h"

namespace corvel::gui {

namespace {

constexpr double kMargin = 8;
// The ring's width as a share of its outer radius, and how far the chosen segment stands out.
constexpr double kRingShare = 0.26;
constexpr double kLift = 5;

// The ring segment between the radii, from start clockwise over span (degrees from twelve).
QPainterPath ringSegment(const QPointF& centre, double outer, double inner, double start, double span) {
    const QRectF outerRect(centre.x() - outer, centre.y() - outer, 2 * outer, 2 * outer);
    const QRectF innerRect(centre.x() - inner, centre.y() - inner, 2 * inner, 2 * inner);
    // Qt counts anticlockwise from three o'clock.
    const double qtStart = 90.0 - start;
    QPainterPath path;
    path.arcMoveTo(outerRect, qtStart);
    path.arcTo(outerRect, qtStart, -span);
    path.arcTo(innerRect, qtStart - span, span);
    path.closeSubpath();
    return path;
}

QString shareLine(const CVMetaGroup& category, std::uint64_t total) {
    const double percent =
        total ? 100.0 * static_cast<double>(category.size()) / static_cast<double>(total) : 0;
    return windowText("Results_DiagramShare")
        .arg(text(CVMetaGroup::nameKey(category.groupID())))
        .arg(qs(stringWithSize(category.size())))
        .arg(QString::number(percent, 'f', percent < 10 ? 1 : 0));
}

} // namespace

SizeDiagram::SizeDiagram(QWidget* parent) : QWidget(parent) {
    setObjectName("sizeDiagram");
    setAccessibleName(windowText("Results_DiagramAccessibleName"));
    setFocusPolicy(Qt::NoFocus);
    setMouseTracking(false);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    updateDescription();
}

void SizeDiagram::setCategories(const std::vector<std::shared_ptr<CVMetaGroup>>& categories,
                                std::optional<std::size_t> selectedRow) {
    m_categories = categories;
    m_selectedID.reset();
    if (selectedRow && *selectedRow < categories.size())
        m_selectedID = categories[*selectedRow]->groupID();
    updateDescription();
    update();
}

void SizeDiagram::refresh() {
    updateDescription();
    update();
}

std::uint64_t SizeDiagram::total() const {
    std::uint64_t sum = 0;
    for (const auto& category : m_categories)
        if (category->groupID() != kMetaGroupAll)
            sum += category->size();
    return sum;
}

std::vector<SizeDiagram::Segment> SizeDiagram::segments() const {
    std::vector<Segment> result;
    const std::uint64_t sum = total();
    if (sum == 0)
        return result;
    double start = 0;
    for (std::size_t row = 0; row < m_categories.size(); ++row) {
        const CVMetaGroup& category = *m_categories[row];
        if (category.groupID() == kMetaGroupAll || category.size() == 0)
            continue;
        const double span = 360.0 * static_cast<double>(category.size()) / static_cast<double>(sum);
        result.push_back({category.groupID(), row, category.size(), start, span});
        start += span;
    }
    return result;
}

QColor SizeDiagram::colorFor(std::int32_t groupID) {
    const RGBColor c = CVMetaGroup::colorForID(groupID);
    return QColor::fromRgbF(static_cast<float>(c.red), static_cast<float>(c.green),
                            static_cast<float>(c.blue));
}

QIcon SizeDiagram::dotFor(std::int32_t groupID) {
    QPixmap dot(32, 32);
    dot.fill(Qt::transparent);
    QPainter painter(&dot);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(colorFor(groupID));
    // All files is the whole ring: a blank of the same width keeps the names aligned.
    if (groupID != kMetaGroupAll)
        painter.drawEllipse(QRectF(6, 6, 20, 20));
    return QIcon(dot);
}

QRectF SizeDiagram::ringRect() const {
    const double side = std::max(0.0, std::min(width(), height()) - 2 * kMargin);
    return {(width() - side) / 2.0, (height() - side) / 2.0, side, side};
}

std::optional<SizeDiagram::Segment> SizeDiagram::segmentAt(QPointF point) const {
    const QRectF ring = ringRect();
    const QPointF centre = ring.center();
    const double outer = ring.width() / 2.0 - kLift;
    const double inner = outer * (1 - kRingShare);
    const double dx = point.x() - centre.x();
    const double dy = point.y() - centre.y();
    const double distance = std::hypot(dx, dy);
    if (distance < inner || distance > outer + kLift)
        return std::nullopt;
    // Clockwise from twelve o'clock.
    double degrees = std::atan2(dx, -dy) * 180.0 / std::numbers::pi;
    if (degrees < 0)
        degrees += 360.0;
    for (const Segment& segment : segments()) {
        const bool lifted = m_selectedID == segment.groupID;
        if (distance > outer && !lifted)
            continue;
        if (degrees >= segment.startDegrees && degrees < segment.startDegrees + segment.spanDegrees)
            return segment;
    }
    return std::nullopt;
}

QSize SizeDiagram::sizeHint() const {
    return {220, 190};
}

QSize SizeDiagram::minimumSizeHint() const {
    return {120, 120};
}

void SizeDiagram::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF ring = ringRect();
    if (ring.width() < 4)
        return;
    const QPointF centre = ring.center();
    const double outer = ring.width() / 2.0 - kLift;
    const double inner = outer * (1 - kRingShare);
    const std::vector<Segment> parts = segments();

    // Separators in the window's own colour, so the segments part on any theme.
    QPen separator(palette().color(QPalette::Window), 1.5);
    if (parts.empty()) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(palette().color(QPalette::Mid));
        painter.drawPath(ringSegment(centre, outer, inner, 0, 359.99));
    }
    for (const Segment& segment : parts) {
        const bool lifted = m_selectedID && *m_selectedID == segment.groupID;
        QColor fill = colorFor(segment.groupID);
        // With one category chosen, the others step back.
        if (m_selectedID && *m_selectedID != kMetaGroupAll && !lifted)
            fill.setAlphaF(0.45f);
        painter.setPen(parts.size() > 1 ? separator : QPen(Qt::NoPen));
        painter.setBrush(fill);
        const double span = parts.size() > 1 ? segment.spanDegrees : 359.99;
        painter.drawPath(
            ringSegment(centre, outer + (lifted ? kLift : 0), inner, segment.startDegrees, span));
    }

    // The total in the middle, and what it is.
    const double room = 2 * inner * 0.92;
    QFont big = font();
    big.setBold(true);
    big.setPointSizeF(font().pointSizeF() * 1.15);
    const QString amount = parts.empty() ? windowText("Results_DiagramEmpty") : qs(stringWithSize(total()));
    painter.setPen(palette().color(QPalette::WindowText));
    painter.setFont(big);
    const QFontMetricsF bigMetrics(big);
    const QRectF amountRect(centre.x() - room / 2, centre.y() - bigMetrics.height(), room,
                            bigMetrics.height());
    painter.drawText(amountRect, Qt::AlignHCenter | Qt::AlignBottom,
                     bigMetrics.elidedText(amount, Qt::ElideRight, room));
    if (!parts.empty()) {
        painter.setFont(font());
        painter.setPen(palette().color(QPalette::PlaceholderText));
        const QFontMetricsF metrics(font());
        const QRectF captionRect(centre.x() - room / 2, centre.y() + 1, room, metrics.height());
        painter.drawText(captionRect, Qt::AlignHCenter | Qt::AlignTop,
                         metrics.elidedText(windowText("Results_DiagramCaption"), Qt::ElideRight, room));
    }
}

void SizeDiagram::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton)
        if (const auto segment = segmentAt(event->position()); segment && m_choose) {
            m_choose(segment->row);
            return;
        }
    QWidget::mousePressEvent(event);
}

bool SizeDiagram::event(QEvent* event) {
    if (event->type() == QEvent::ToolTip) {
        auto* help = static_cast<QHelpEvent*>(event);
        const auto segment = segmentAt(help->pos());
        if (segment)
            QToolTip::showText(help->globalPos(), shareLine(*m_categories[segment->row], total()), this);
        else
            QToolTip::hideText();
        return true;
    }
    return QWidget::event(event);
}

void SizeDiagram::updateDescription() {
    const std::uint64_t sum = total();
    if (sum == 0) {
        setAccessibleDescription(windowText("Results_DiagramEmpty"));
        return;
    }
    QStringList lines;
    for (const Segment& segment : segments())
        lines << shareLine(*m_categories[segment.row], sum);
    setAccessibleDescription(lines.join("; "));
}

} // namespace corvel::gui

#pragma once
// SizeDiagram: the results page's size diagram, a ring that shares out the duplicates'
// size among the categories (Other, Documents, Pictures, Music, Movies, Archives,
// Folders), each in its category colour, with the total in the middle; the chosen
// category stands out. It keeps the controller's category objects and reads their sizes
// whenever it paints, so it follows the scan and the removals without being told. A
// click on a segment asks for that category; the keyboard reaches categories through the
// list beside it, so the diagram itself takes no focus. Its accessible description
// reads the shares aloud. Text, background and separators come from the palette. GUI
// thread.

#include <QIcon>
#include <QWidget>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "results/meta_group.h"

namespace corvel::gui {

class SizeDiagram final : public QWidget {
public:
    // One category's part of the ring: angles in degrees, clockwise from twelve o'clock.
    struct Segment {
        std::int32_t groupID;
        std::size_t row; // the category's row in the list given to setCategories
        std::uint64_t size;
        double startDegrees;
        double spanDegrees;
    };

    explicit SizeDiagram(QWidget* parent = nullptr);

    // The categories as the controller lists them (category 0, all files, is the total);
    // selectedRow is the chosen one, if any.
    void setCategories(const std::vector<std::shared_ptr<CVMetaGroup>>& categories,
                       std::optional<std::size_t> selectedRow);
    // The sizes changed (a removal, marks): the description is read again and the ring
    // repainted.
    void refresh();
    // Called with the row of the category whose segment was clicked.
    void setCategoryHandler(std::function<void(std::size_t)> handler) { m_choose = std::move(handler); }

    // The segments as they would be painted now (categories with a size only).
    std::vector<Segment> segments() const;
    // The segment under a point of the widget, if any.
    std::optional<Segment> segmentAt(QPointF point) const;
    // The category's colour in the ring, and a dot of it for the list's legend (blank
    // for all files).
    static QColor colorFor(std::int32_t groupID);
    static QIcon dotFor(std::int32_t groupID);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    bool event(QEvent* event) override;

private:
    QRectF ringRect() const;
    std::uint64_t total() const;
    void updateDescription();

    std::vector<std::shared_ptr<CVMetaGroup>> m_categories;
    std::optional<std::int32_t> m_selectedID;
    std::function<void(std::size_t)> m_choose;
};

} // namespace corvel::gui

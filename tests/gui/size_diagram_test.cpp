// The results page's size diagram on the offscreen platform: how it shares the ring out
// among the categories, which category a click reaches, that it paints in the category
// colours over the palette it is given, and what it tells a screen reader.

#include <QApplication>
#include <QTest>
#include <cmath>
#include <memory>
#include <numbers>

#include "results/duplicates_controller.h"
#include "size_diagram.h"

using namespace corvel;
using namespace corvel::gui;

Q_DECLARE_METATYPE(std::vector<quint64>)

namespace {

// Categories as the controller lists them: all files first, then one per size given
// (Other, Documents, Pictures, ... in id order); a size of 0 keeps an empty category.
std::vector<std::shared_ptr<CVMetaGroup>> categories(const std::vector<quint64>& sizes) {
    std::vector<std::shared_ptr<CVMetaGroup>> list{std::make_shared<CVMetaGroup>(kMetaGroupAll)};
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        auto category = std::make_shared<CVMetaGroup>(static_cast<std::int32_t>(i + 1));
        category->incSize(sizes[i]);
        category->incCount();
        list.front()->incSize(sizes[i]);
        list.front()->incCount();
        list.push_back(category);
    }
    return list;
}

// The middle of a segment's ring, in the widget's coordinates.
QPointF middleOf(const SizeDiagram& diagram, const SizeDiagram::Segment& segment, double radiusShare = 0.87) {
    const double side = std::min(diagram.width(), diagram.height()) - 16;
    const QPointF centre(diagram.width() / 2.0, diagram.height() / 2.0);
    const double radius = (side / 2.0 - 5) * radiusShare;
    const double angle = (segment.startDegrees + segment.spanDegrees / 2) * std::numbers::pi / 180.0;
    return centre + QPointF(radius * std::sin(angle), -radius * std::cos(angle));
}

bool near(QColor a, QColor b, int tolerance = 12) {
    return std::abs(a.red() - b.red()) <= tolerance && std::abs(a.green() - b.green()) <= tolerance &&
           std::abs(a.blue() - b.blue()) <= tolerance;
}

} // namespace

class SizeDiagramTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theRingIsSharedBySize_data();
    void theRingIsSharedBySize();
    void aClickOnASegmentChoosesItsCategory();
    void itPaintsInCategoryColoursOverThePalette_data();
    void itPaintsInCategoryColoursOverThePalette();
    void aScreenReaderHearsTheShares();
};

void SizeDiagramTest::theRingIsSharedBySize_data() {
    QTest::addColumn<std::vector<quint64>>("sizes");
    QTest::addColumn<std::vector<int>>("shownIDs");
    QTest::addColumn<std::vector<double>>("spans");
    QTest::newRow("one category takes the ring")
        << std::vector<quint64>{0, 0, 500} << std::vector<int>{3} << std::vector<double>{360};
    QTest::newRow("quarters") << std::vector<quint64>{100, 300} << std::vector<int>{1, 2}
                              << std::vector<double>{90, 270};
    QTest::newRow("empty categories leave no segment")
        << std::vector<quint64>{0, 200, 0, 200, 400} << std::vector<int>{2, 4, 5}
        << std::vector<double>{90, 90, 180};
    QTest::newRow("nothing found") << std::vector<quint64>{0, 0} << std::vector<int>{}
                                   << std::vector<double>{};
    // Sizes past 32 bits, as a disk of films has.
    QTest::newRow("terabytes") << std::vector<quint64>{3'000'000'000'000ULL, 1'000'000'000'000ULL}
                               << std::vector<int>{1, 2} << std::vector<double>{270, 90};
}

void SizeDiagramTest::theRingIsSharedBySize() {
    QFETCH(std::vector<quint64>, sizes);
    QFETCH(std::vector<int>, shownIDs);
    QFETCH(std::vector<double>, spans);
    SizeDiagram diagram;
    diagram.setCategories(categories(sizes), 0);
    const auto segments = diagram.segments();
    QCOMPARE(segments.size(), shownIDs.size());
    double start = 0;
    for (std::size_t i = 0; i < segments.size(); ++i) {
        QCOMPARE(segments[i].groupID, shownIDs[i]);
        QCOMPARE(segments[i].row, static_cast<std::size_t>(shownIDs[i]));
        QVERIFY2(std::abs(segments[i].spanDegrees - spans[i]) < 1e-6,
                 qPrintable(QString::number(segments[i].spanDegrees)));
        QVERIFY(std::abs(segments[i].startDegrees - start) < 1e-6);
        start += segments[i].spanDegrees;
    }
}

void SizeDiagramTest::aClickOnASegmentChoosesItsCategory() {
    SizeDiagram diagram;
    diagram.resize(220, 220);
    const auto list = categories({100, 300, 0, 600});
    diagram.setCategories(list, 0);
    std::vector<std::size_t> chosen;
    diagram.setCategoryHandler([&](std::size_t row) { chosen.push_back(row); });
    diagram.show();
    QVERIFY(QTest::qWaitForWindowExposed(&diagram));
    for (const auto& segment : diagram.segments())
        QTest::mouseClick(&diagram, Qt::LeftButton, {}, middleOf(diagram, segment).toPoint());
    QCOMPARE(chosen, (std::vector<std::size_t>{1, 2, 4}));
    // The hole in the middle and the corners choose nothing.
    QTest::mouseClick(&diagram, Qt::LeftButton, {}, QPoint(110, 110));
    QTest::mouseClick(&diagram, Qt::LeftButton, {}, QPoint(2, 2));
    QCOMPARE(chosen.size(), std::size_t(3));
    QVERIFY(!diagram.segmentAt(QPointF(110, 110)));
    // The chosen category's segment stands out, and is reached just beyond the ring.
    const auto music = diagram.segments()[2];
    diagram.setCategories(list, 4);
    QCOMPARE(diagram.segmentAt(middleOf(diagram, music, 1.04))->groupID, kMetaGroupMusic);
    QVERIFY(!diagram.segmentAt(middleOf(diagram, diagram.segments()[0], 1.04)));
}

void SizeDiagramTest::itPaintsInCategoryColoursOverThePalette_data() {
    QTest::addColumn<QColor>("window");
    QTest::addColumn<QColor>("text");
    QTest::newRow("light") << QColor(239, 239, 239) << QColor(0, 0, 0);
    QTest::newRow("dark") << QColor(40, 40, 46) << QColor(250, 250, 250);
}

void SizeDiagramTest::itPaintsInCategoryColoursOverThePalette() {
    QFETCH(QColor, window);
    QFETCH(QColor, text);
    SizeDiagram diagram;
    QPalette palette = diagram.palette();
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::WindowText, text);
    diagram.setPalette(palette);
    diagram.setAutoFillBackground(true);
    diagram.resize(220, 220);
    diagram.setCategories(categories({0, 250, 750}), 0);
    const QImage image = diagram.grab().toImage();
    const qreal scale = image.devicePixelRatio();
    auto pixel = [&](QPointF at) { return image.pixelColor((at * scale).toPoint()); };
    for (const auto& segment : diagram.segments())
        QVERIFY2(near(pixel(middleOf(diagram, segment)), SizeDiagram::colorFor(segment.groupID)),
                 qPrintable(pixel(middleOf(diagram, segment)).name()));
    QVERIFY(near(pixel({3, 3}), window));
    // The total in the middle is written in the palette's text colour.
    bool textSeen = false;
    for (int y = 95; y < 112 && !textSeen; ++y)
        for (int x = 70; x < 150 && !textSeen; ++x)
            textSeen = near(pixel({double(x), double(y)}), text, 40);
    QVERIFY(textSeen);
}

void SizeDiagramTest::aScreenReaderHearsTheShares() {
    SizeDiagram diagram;
    QVERIFY(!diagram.accessibleName().isEmpty());
    QCOMPARE(diagram.focusPolicy(), Qt::NoFocus);
    const auto list = categories({0, 0, 3000, 1000});
    diagram.setCategories(list, 0);
    const QString description = diagram.accessibleDescription();
    QVERIFY2(description.contains("Pictures") && description.contains("75 %"), qPrintable(description));
    QVERIFY2(description.contains("Music") && description.contains("25 %"), qPrintable(description));
    QVERIFY(!description.contains("Documents"));
    // Sizes change under it (a removal): a refresh reads them again.
    list[4]->incSize(2000);
    diagram.refresh();
    QVERIFY2(diagram.accessibleDescription().contains("50 %"), qPrintable(diagram.accessibleDescription()));
    diagram.setCategories(categories({}), std::nullopt);
    QVERIFY(diagram.segments().empty());
    QVERIFY(!diagram.accessibleDescription().isEmpty());
}

int runSizeDiagramTests(int argc, char** argv) {
    SizeDiagramTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "size_diagram_test.moc"

// The preview pane on the offscreen platform: PDF files written by hand in the test, their
// first page rendered in the pane; a damaged PDF falls back to the name and nothing the
// pane reads is changed; names that are not UTF-8 are previewed too.

#include <QApplication>
#include <QTest>
#include <string>
#include <vector>

#include "gui_text.h"
#include "preview_pane.h"
#include "support/temp_tree.h"

using namespace corvel;
using namespace corvel::gui;

namespace {

// A PDF of the given pages, each a width x height page (points) with one filled
// rectangle in an RGB colour: "x y w h r g b".
struct PdfPage {
    int width, height;
    std::string rectangle;
};

std::string makePdf(const std::vector<PdfPage>& pages) {
    std::string pdf = "%PDF-1.4\n";
    std::vector<std::size_t> offsets;
    auto object = [&](const std::string& body) {
        offsets.push_back(pdf.size());
        pdf += std::to_string(offsets.size()) + " 0 obj\n" + body + "\nendobj\n";
    };
    object("<< /Type /Catalog /Pages 2 0 R >>");
    std::string kids;
    for (std::size_t i = 0; i < pages.size(); ++i)
        kids += std::to_string(3 + 2 * i) + " 0 R ";
    object("<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(pages.size()) + " >>");
    for (std::size_t i = 0; i < pages.size(); ++i) {
        const PdfPage& page = pages[i];
        object("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 " + std::to_string(page.width) + " " +
               std::to_string(page.height) + "] /Contents " + std::to_string(4 + 2 * i) +
               " 0 R /Resources << >> >>");
        // "x y w h r g b" becomes "r g b rg x y w h re f".
        std::vector<std::string> v;
        std::string word;
        for (char c : page.rectangle + " ") {
            if (c == ' ') {
                v.push_back(word);
                word.clear();
            } else {
                word += c;
            }
        }
        const std::string stream =
            v[4] + " " + v[5] + " " + v[6] + " rg " + v[0] + " " + v[1] + " " + v[2] + " " + v[3] + " re f\n";
        object("<< /Length " + std::to_string(stream.size()) + " >>\nstream\n" + stream + "endstream");
    }
    const std::size_t xref = pdf.size();
    pdf += "xref\n0 " + std::to_string(offsets.size() + 1) + "\n0000000000 65535 f \n";
    for (const std::size_t offset : offsets) {
        char line[24];
        std::snprintf(line, sizeof line, "%010zu 00000 n \n", offset);
        pdf += line;
    }
    pdf += "trailer\n<< /Size " + std::to_string(offsets.size() + 1) + " /Root 1 0 R >>\nstartxref\n" +
           std::to_string(xref) + "\n%%EOF\n";
    return pdf;
}

bool near(QColor a, QColor b) {
    return std::abs(a.red() - b.red()) < 16 && std::abs(a.green() - b.green()) < 16 &&
           std::abs(a.blue() - b.blue()) < 16;
}

} // namespace

class PdfPreviewTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theFirstPageIsShown_data();
    void theFirstPageIsShown();
    void aDamagedPdfShowsItsName();
    void namesThatAreNotUtf8AreFoundAndRead();
};

void PdfPreviewTest::theFirstPageIsShown_data() {
    QTest::addColumn<std::vector<PdfPage>>("pages");
    QTest::addColumn<double>("aspect");
    QTest::addColumn<QColor>("left");
    QTest::addColumn<QColor>("right");
    // A wide page, its right half red on white paper.
    QTest::newRow("one page") << std::vector<PdfPage>{{200, 100, "100 0 100 100 1 0 0"}} << 2.0
                              << QColor(Qt::white) << QColor(Qt::red);
    // Blue all over on the first page; the red second page is not the one shown.
    QTest::newRow("first of two") << std::vector<PdfPage>{{100, 150, "0 0 100 150 0 0 1"},
                                                          {100, 150, "0 0 100 150 1 0 0"}}
                                  << 100.0 / 150.0 << QColor(Qt::blue) << QColor(Qt::blue);
}

void PdfPreviewTest::theFirstPageIsShown() {
    if (!PreviewPane::rendersPdf())
        QSKIP("built without Qt PDF");
    QFETCH(std::vector<PdfPage>, pages);
    QFETCH(double, aspect);
    QFETCH(QColor, left);
    QFETCH(QColor, right);
    test::TempTree tree;
    const std::string content = makePdf(pages);
    const std::string path = tree.file("letter.pdf", content);
    PreviewPane pane;
    pane.resize(400, 400);
    pane.show();
    pane.showFile(path);
    QCOMPARE(pane.kind(), PreviewPane::Kind::Pdf);
    const QImage shown = pane.imageLabel()->pixmap().toImage();
    QVERIFY(!shown.isNull());
    QVERIFY2(std::abs(double(shown.width()) / shown.height() - aspect) < 0.05,
             qPrintable(QString("%1x%2").arg(shown.width()).arg(shown.height())));
    const int y = shown.height() / 2;
    QVERIFY2(near(shown.pixelColor(shown.width() / 4, y), left),
             qPrintable(shown.pixelColor(shown.width() / 4, y).name()));
    QVERIFY2(near(shown.pixelColor(shown.width() * 3 / 4, y), right),
             qPrintable(shown.pixelColor(shown.width() * 3 / 4, y).name()));
    // A larger pane shows a larger page.
    pane.resize(800, 800);
    QTRY_VERIFY(pane.imageLabel()->pixmap().width() > shown.width());
    // Previewing only reads.
    QCOMPARE(test::TempTree::read(path), content);
}

void PdfPreviewTest::aDamagedPdfShowsItsName() {
    test::TempTree tree;
    const std::string content = "%PDF-1.4\n1 0 obj\n<< /Type /Catalog /Pages 2 0 R";
    const std::string path = tree.file("torn.pdf", content);
    PreviewPane pane;
    pane.resize(300, 300);
    pane.showFile(path);
    QCOMPARE(pane.kind(), PreviewPane::Kind::Other);
    QVERIFY(pane.infoLabel()->text().contains("torn.pdf"));
    QCOMPARE(test::TempTree::read(path), content);
}

// A name with a byte that is not UTF-8 (Latin-1 "é") has no QString of its own: the file
// is still found, read and sized, and a missing one is still said to be gone.
void PdfPreviewTest::namesThatAreNotUtf8AreFoundAndRead() {
    test::TempTree tree;
    const std::string text = tree.file("caf\xe9.txt", "latin-1 named notes\n");
    const std::string other = tree.file("r\xe9sum\xe9.bin", std::string(3000, '\x01'));
    PreviewPane pane;
    pane.resize(300, 300);
    pane.showFile(text);
    QCOMPARE(pane.kind(), PreviewPane::Kind::Text);
    QCOMPARE(pane.textView()->toPlainText(), QString("latin-1 named notes\n"));
    pane.showFile(other);
    QCOMPARE(pane.kind(), PreviewPane::Kind::Other);
    QVERIFY2(pane.infoLabel()->text().contains("3 KB"), qPrintable(pane.infoLabel()->text()));
    QVERIFY2(!pane.infoLabel()->text().contains(windowText("Results_FileGone")),
             qPrintable(pane.infoLabel()->text()));
    pane.showFile(tree / "gone\xe9.bin");
    QCOMPARE(pane.kind(), PreviewPane::Kind::Other);
    QVERIFY2(pane.infoLabel()->text().contains(windowText("Results_FileGone")),
             qPrintable(pane.infoLabel()->text()));
}

int runPdfPreviewTests(int argc, char** argv) {
    PdfPreviewTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "pdf_preview_test.moc"

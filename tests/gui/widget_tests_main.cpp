// gui_widget_tests: the desktop application's widgets tested one by one, each class of
// tests in its own file, on the offscreen platform unless another is named.

#include <QApplication>
#include <cstdlib>

int runSizeDiagramTests(int argc, char** argv);
int runPdfPreviewTests(int argc, char** argv);
int runFileManagerRevealTests(int argc, char** argv);
int runReturnClicksButtonsTests(int argc, char** argv);

int main(int argc, char** argv) {
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QApplication app(argc, argv);
    int failed = 0;
    failed += runSizeDiagramTests(argc, argv) != 0;
    failed += runPdfPreviewTests(argc, argv) != 0;
    failed += runFileManagerRevealTests(argc, argv) != 0;
    failed += runReturnClicksButtonsTests(argc, argv) != 0;
    return failed;
}

#pragma once
// PreviewPane: a look at one file without opening it. Images Qt can read are shown
// scaled to the pane; a PDF shows its first page (when built with Qt PDF; a damaged or
// locked PDF falls back to the name); text (any type that inherits text/plain) shows its
// first 64 KB; anything else, a folder or a file gone from the disk shows its name, type
// and size.
// The file is only read. PreviewWindow is the preview panel the results view asks for
// (the Space key, "Quick Look"): a window over the main one with a pane per item. GUI
// thread.

#include <QDialog>
#include <QLabel>
#include <QPlainTextEdit>
#include <QStackedWidget>
#include <QString>

#include "app/desktop_roles.h"

namespace corvel::gui {

class PreviewPane final : public QWidget {
public:
    enum class Kind { None, Image, Pdf, Text, Other };
    // Whether this build renders PDF pages.
    static bool rendersPdf();

    explicit PreviewPane(QWidget* parent = nullptr);

    // Shows the file at path (a native path); empty clears the pane.
    void showFile(const std::string& path);
    Kind kind() const { return m_kind; }
    QLabel* imageLabel() const { return m_image; }
    QPlainTextEdit* textView() const { return m_text; }
    QLabel* infoLabel() const { return m_info; }

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void showImage();
    // The first page of the PDF at m_path into m_original; false when it cannot be read.
    bool renderFirstPdfPage();

    Kind m_kind = Kind::None;
    QString m_path;
    QImage m_original;
    QStackedWidget* m_stack;
    QLabel* m_image;
    QPlainTextEdit* m_text;
    QLabel* m_info;
};

class PreviewWindow final : public PreviewPanel {
public:
    explicit PreviewWindow(QWidget* parent) : m_parent(parent) {}
    ~PreviewWindow() override;

    bool showPreview(const std::vector<std::string>& paths, CVError* error) override;
    void closePreview() override;
    QDialog* dialog() const { return m_dialog; }

private:
    QWidget* m_parent;
    QDialog* m_dialog = nullptr;
    PreviewPane* m_pane = nullptr;
};

} // namespace corvel::gui

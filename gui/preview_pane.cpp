#include "preview_pane.h"

#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QLocale>
#include <QMimeDatabase>
#include <QPainter>
#include <QResizeEvent>
#include <QVBoxLayout>
#include <fcntl.h>

#ifdef CORVEL_HAVE_QT_PDF
#include <QPdfDocument>
#endif

#include "engine/file_sizer.h"
#include "gui_text.h"
#include "platform/file_io.h"
#include "platform/unique_fd.h"

namespace corvel::gui {

namespace {
constexpr qint64 kTextPreviewBytes = 64 * 1024;
// Larger images are read scaled down, so a huge photo costs no more than the pane.
constexpr int kImageReadLimit = 2048;
// A PDF page is rendered this many pixels on its longer side, then scaled to the pane.
constexpr int kPdfRenderSide = 1200;
} // namespace

PreviewPane::PreviewPane(QWidget* parent) : QWidget(parent) {
    setObjectName("previewPane");
    setAccessibleName(windowText("Results_PreviewAccessibleName"));
    m_stack = new QStackedWidget(this);
    m_image = new QLabel(m_stack);
    m_image->setAlignment(Qt::AlignCenter);
    m_image->setMinimumSize(1, 1);
    m_text = new QPlainTextEdit(m_stack);
    m_text->setReadOnly(true);
    m_text->setAccessibleName(windowText("Results_PreviewAccessibleName"));
    m_text->setLineWrapMode(QPlainTextEdit::NoWrap);
    m_info = new QLabel(m_stack);
    m_info->setAlignment(Qt::AlignCenter);
    m_info->setWordWrap(true);
    m_info->setForegroundRole(QPalette::PlaceholderText);
    m_stack->addWidget(m_info);
    m_stack->addWidget(m_image);
    m_stack->addWidget(m_text);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_stack);
    showFile({});
}

void PreviewPane::showFile(const std::string& path) {
    m_path = QFile::decodeName(QByteArray::fromStdString(path));
    m_original = QImage();
    m_text->clear();
    if (path.empty()) {
        m_kind = Kind::None;
        m_info->setText(windowText("Results_PreviewNothing"));
        m_stack->setCurrentWidget(m_info);
        return;
    }
    // A name that is not UTF-8 has no QString leading back to it: that file is read through
    // a descriptor opened by the name's bytes, which /proc/self/fd names in plain digits.
    UniqueFd opened;
    if (QFile::encodeName(m_path).toStdString() != path) {
        opened = UniqueFd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
        if (opened.valid())
            m_path = QStringLiteral("/proc/self/fd/%1").arg(opened.get());
    }
    const QString name = QFile::decodeName(QByteArray::fromStdString(lastPathComponent(path)));
    const QFileInfo info(m_path);
    QMimeDatabase db;
    QFile sniffed(m_path);
    const QMimeType type = opened.valid() && sniffed.open(QIODevice::ReadOnly)
                               ? db.mimeTypeForFileNameAndData(name, &sniffed)
                               : db.mimeTypeForFile(info);
    sniffed.close();
    if (info.isFile() && type.name().startsWith("image/")) {
        QImageReader reader(m_path);
        reader.setAutoTransform(true);
        const QSize size = reader.size();
        if (size.isValid() && (size.width() > kImageReadLimit || size.height() > kImageReadLimit))
            reader.setScaledSize(size.scaled(kImageReadLimit, kImageReadLimit, Qt::KeepAspectRatio));
        m_original = reader.read();
        if (!m_original.isNull()) {
            m_kind = Kind::Image;
            m_stack->setCurrentWidget(m_image);
            showImage();
            return;
        }
    }
    if (info.isFile() && type.inherits("application/pdf") && renderFirstPdfPage()) {
        m_kind = Kind::Pdf;
        m_stack->setCurrentWidget(m_image);
        showImage();
        return;
    }
    if (info.isFile() && type.inherits("text/plain")) {
        QFile file(m_path);
        if (file.open(QIODevice::ReadOnly)) {
            m_kind = Kind::Text;
            m_text->setPlainText(QString::fromUtf8(file.read(kTextPreviewBytes)));
            m_stack->setCurrentWidget(m_text);
            return;
        }
    }
    m_kind = Kind::Other;
    QString line = name + "\n" + type.comment();
    if (info.exists() && info.isFile())
        line += "\n" + qs(stringWithSize(static_cast<std::uint64_t>(info.size())));
    else if (!info.exists())
        line += "\n" + windowText("Results_FileGone");
    m_info->setText(line);
    m_stack->setCurrentWidget(m_info);
}

bool PreviewPane::rendersPdf() {
#ifdef CORVEL_HAVE_QT_PDF
    return true;
#else
    return false;
#endif
}

bool PreviewPane::renderFirstPdfPage() {
#ifdef CORVEL_HAVE_QT_PDF
    QPdfDocument document;
    if (document.load(m_path) != QPdfDocument::Error::None || document.pageCount() < 1)
        return false;
    const QSizeF points = document.pagePointSize(0);
    if (points.isEmpty())
        return false;
    const QSize pixels = points.scaled(kPdfRenderSide, kPdfRenderSide, Qt::KeepAspectRatio).toSize();
    QImage page = document.render(0, pixels.expandedTo({1, 1}));
    if (page.isNull())
        return false;
    // Pages without a background of their own are drawn on paper, not on the pane.
    m_original = QImage(page.size(), QImage::Format_RGB32);
    m_original.fill(Qt::white);
    QPainter painter(&m_original);
    painter.drawImage(0, 0, page);
    return true;
#else
    return false;
#endif
}

void PreviewPane::showImage() {
    if (m_original.isNull())
        return;
    const QSize area = m_image->size().boundedTo(m_original.size());
    m_image->setPixmap(QPixmap::fromImage(
        m_original.scaled(area.expandedTo({1, 1}), Qt::KeepAspectRatio, Qt::SmoothTransformation)));
}

void PreviewPane::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    if (m_kind == Kind::Image || m_kind == Kind::Pdf)
        showImage();
}

PreviewWindow::~PreviewWindow() {
    delete m_dialog;
}

bool PreviewWindow::showPreview(const std::vector<std::string>& paths, CVError*) {
    if (paths.empty())
        return true;
    if (!m_dialog) {
        m_dialog = new QDialog(m_parent);
        m_dialog->setObjectName("previewWindow");
        m_dialog->resize(640, 480);
        m_pane = new PreviewPane(m_dialog);
        auto* layout = new QVBoxLayout(m_dialog);
        layout->addWidget(m_pane);
    }
    m_pane->showFile(paths.front());
    m_dialog->setWindowTitle(
        QFileInfo(QFile::decodeName(QByteArray::fromStdString(paths.front()))).fileName());
    m_dialog->show();
    m_dialog->raise();
    return true;
}

void PreviewWindow::closePreview() {
    if (m_dialog)
        m_dialog->hide();
}

} // namespace corvel::gui

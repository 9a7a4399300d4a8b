#include "about_panel.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "app_shell.h"
#include "gui_text.h"

namespace corvel::gui {

AboutPanel::AboutPanel(const QString& version, QWidget* parent) : QDialog(parent) {
    setObjectName("aboutPanel");
    setWindowTitle(windowText("About_Title"));
    auto* icon = new QLabel(this);
    icon->setPixmap(applicationIcon().pixmap(96, 96));
    icon->setAlignment(Qt::AlignHCenter);
    auto* name = new QLabel(windowText("About_Name"), this);
    QFont big = name->font();
    big.setPointSizeF(big.pointSizeF() * 1.6);
    big.setBold(true);
    name->setFont(big);
    name->setAlignment(Qt::AlignHCenter);
    auto* versionLabel = new QLabel(windowText("About_Version").arg(version), this);
    versionLabel->setObjectName("aboutVersion");
    versionLabel->setAlignment(Qt::AlignHCenter);
    versionLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* blurb = new QLabel(windowText("About_Description"), this);
    blurb->setWordWrap(true);
    blurb->setAlignment(Qt::AlignHCenter);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    buttons->button(QDialogButtonBox::Close)->setText(windowText("Button_Close"));
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(28, 24, 28, 16);
    layout->addWidget(icon);
    layout->addWidget(name);
    layout->addWidget(versionLabel);
    layout->addSpacing(8);
    layout->addWidget(blurb);
    layout->addSpacing(8);
    layout->addWidget(buttons);
    setFixedWidth(380);
}

} // namespace corvel::gui

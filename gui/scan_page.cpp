#include "scan_page.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QVBoxLayout>

#include "gui_text.h"

namespace corvel::gui {

ScanPage::ScanPage(QWidget* parent) : QWidget(parent) {
    m_status = new QLabel(this);
    m_status->setObjectName("status");
    m_status->setAlignment(Qt::AlignHCenter);
    m_status->setWordWrap(true);
    QFont big = m_status->font();
    big.setPointSizeF(big.pointSizeF() * 1.5);
    big.setBold(true);
    m_status->setFont(big);
    m_status->setAccessibleName(windowText("ScanPage_StatusAccessibleName"));

    m_subStatus = new QLabel(this);
    m_subStatus->setObjectName("subStatus");
    m_subStatus->setAlignment(Qt::AlignHCenter);
    m_subStatus->setWordWrap(true);
    m_subStatus->setForegroundRole(QPalette::PlaceholderText);
    m_subStatus->setAccessibleName(windowText("ScanPage_SubStatusAccessibleName"));

    m_dropZone = new DropZone(this);
    m_dropZone->setObjectName("dropZone");

    m_plus = new QToolButton(this);
    m_plus->setObjectName("plusButton");
    m_plus->setText("+");
    QFont plusFont = m_plus->font();
    plusFont.setPointSizeF(plusFont.pointSizeF() * 1.6);
    plusFont.setBold(true);
    m_plus->setFont(plusFont);
    m_plus->setMinimumSize(40, 40);
    m_plus->setToolTip(buttonText("ButtonToolTip_ScanAnotherFolder"));
    m_plus->setAccessibleName(windowText("ScanPage_AddFolderAccessibleName"));

    m_start = new QPushButton(windowText("ScanPage_Start"), this);
    m_start->setObjectName("startButton");
    m_start->setDefault(true);
    m_start->setAccessibleName(windowText("ScanPage_Start"));
    m_stop = new QPushButton(this);
    m_stop->setObjectName("stopButton");
    m_results = new QPushButton(this);
    m_results->setObjectName("resultsButton");
    m_collector = new QPushButton(this);
    m_collector->setObjectName("collectorButton");
    m_collector->setFlat(true);
    for (QPushButton* b : {m_start, m_stop, m_results})
        b->setMinimumWidth(140);

    auto* zoneRow = new QGridLayout;
    zoneRow->addWidget(m_dropZone, 0, 0, Qt::AlignCenter);
    zoneRow->addWidget(m_plus, 0, 0, Qt::AlignRight | Qt::AlignBottom);
    auto* zoneBox = new QWidget(this);
    zoneBox->setLayout(zoneRow);
    zoneBox->setFixedSize(360, 340);

    // The rows keep their height while their buttons come and go, so the zone stays put.
    auto* buttonRow = new QWidget(this);
    buttonRow->setMinimumHeight(m_start->sizeHint().height() + 8);
    auto* buttons = new QHBoxLayout(buttonRow);
    buttons->setContentsMargins(0, 0, 0, 0);
    buttons->addStretch();
    buttons->addWidget(m_start);
    buttons->addWidget(m_stop);
    buttons->addWidget(m_results);
    buttons->addStretch();

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(32, 24, 32, 24);
    layout->addWidget(m_status);
    layout->addSpacing(4);
    layout->addWidget(m_subStatus);
    layout->addStretch();
    layout->addWidget(zoneBox, 0, Qt::AlignHCenter);
    layout->addStretch();
    layout->addWidget(buttonRow);
    auto* collectorRow = new QWidget(this);
    collectorRow->setMinimumHeight(m_collector->sizeHint().height());
    auto* collectorLayout = new QHBoxLayout(collectorRow);
    collectorLayout->setContentsMargins(0, 0, 0, 0);
    collectorLayout->addWidget(m_collector, 0, Qt::AlignHCenter);
    layout->addWidget(collectorRow);

    m_dropZone->setFixedSize(300, 300);
    setTabOrder(m_dropZone, m_plus);
    setTabOrder(m_plus, m_start);
    setTabOrder(m_start, m_stop);
    setTabOrder(m_stop, m_results);
}

} // namespace corvel::gui

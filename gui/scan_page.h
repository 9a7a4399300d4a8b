#pragma once
// ScanPage: the scan view of the main window: the status line and sub-status, the drop
// zone with its "+" button, and the row of Start, Cancel/New Scan, results and collector
// buttons. It only lays the controls out; MainWindow drives them. GUI thread.

#include <QLabel>
#include <QPushButton>
#include <QToolButton>
#include <QWidget>

#include "drop_zone.h"

namespace corvel::gui {

class ScanPage final : public QWidget {
public:
    explicit ScanPage(QWidget* parent = nullptr);

    QLabel* statusLabel() const { return m_status; }
    QLabel* subStatusLabel() const { return m_subStatus; }
    DropZone* dropZone() const { return m_dropZone; }
    QToolButton* plusButton() const { return m_plus; }
    QPushButton* startButton() const { return m_start; }
    QPushButton* stopButton() const { return m_stop; }
    QPushButton* resultsButton() const { return m_results; }
    QPushButton* collectorButton() const { return m_collector; }

private:
    QLabel* m_status;
    QLabel* m_subStatus;
    DropZone* m_dropZone;
    QToolButton* m_plus;
    QPushButton* m_start;
    QPushButton* m_stop;
    QPushButton* m_results;
    QPushButton* m_collector;
};

} // namespace corvel::gui

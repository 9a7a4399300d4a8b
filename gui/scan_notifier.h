#pragma once
// ScanNotifier: tells the user that a scan ended while the window was not in front, as a
// desktop notification over the same D-Bus code the reminders use. The bus is reached on
// first need; without a notification service nothing is shown (logged once). GUI thread.

#include <QWidget>
#include <memory>

#include "app/scan_notifying.h"

namespace corvel {
class DesktopNotifier;
}

namespace corvel::gui {

class ScanNotifier final : public ScanNotifying {
public:
    // window: notifications are shown only while it is not the active window.
    explicit ScanNotifier(const QWidget& window);
    ~ScanNotifier() override;

    void postScanCompleteNotificationWithSize(std::uint64_t size) override;
    void postScanCompleteNotificationAndNothingFound() override;

private:
    void present(const std::string& body);

    const QWidget& m_window;
    std::unique_ptr<DesktopNotifier> m_notifier;
    bool m_unavailable = false;
};

} // namespace corvel::gui

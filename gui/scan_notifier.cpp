#include "scan_notifier.h"

#include "engine/file_sizer.h"
#include "platform/desktop_notifier.h"
#include "platform/string_tables.h"
#include "platform/system_log.h"
#include "platform/text_format.h"

namespace corvel::gui {

ScanNotifier::ScanNotifier(const QWidget& window) : m_window(window) {}
ScanNotifier::~ScanNotifier() = default;

void ScanNotifier::postScanCompleteNotificationWithSize(std::uint64_t size) {
    present(formatf(localized("StatusTextViewStatus_FoundDuplicates"), stringWithSize(size)));
}

void ScanNotifier::postScanCompleteNotificationAndNothingFound() {
    present(localized("StatusTextViewStatus_NoDuplicates"));
}

void ScanNotifier::present(const std::string& body) {
    if (m_window.isActiveWindow() || m_unavailable)
        return;
    CVError error;
    if (!m_notifier) {
        m_notifier = DesktopNotifier::connect("", &error);
        if (!m_notifier) {
            m_unavailable = true;
            systemLog("No desktop notifications: " + error.localizedDescription());
            return;
        }
    }
    UserNotification notification;
    notification.identifier = "com.halvik.corvel.scanComplete";
    notification.title = localized("Notification_ScanComplete", "Window");
    notification.informativeText = body;
    if (!m_notifier->presentNotification(notification, &error))
        systemLog("Could not show the scan notification: " + error.localizedDescription());
}

} // namespace corvel::gui

#include "scan_item_control.h"

#include <algorithm>

#include "platform/string_tables.h"
#include "platform/text_format.h"
#include "platform/tracker.h"

namespace corvel {

namespace {

std::string withoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

// True when inner lies strictly inside outer, component by component.
bool liesInside(const std::string& inner, const std::string& outer) {
    if (inner == outer || inner.size() <= outer.size() || inner.compare(0, outer.size(), outer) != 0)
        return false;
    return outer == "/" || inner[outer.size()] == '/';
}

} // namespace

RGScanItemControl::RGScanItemControl(ScanItemControlView& view, Tracker& tracker)
    : m_view(view), m_tracker(tracker) {}

std::vector<std::string> RGScanItemControl::mergedTargets(const std::vector<std::string>& added,
                                                          const std::vector<std::string>& previous) {
    std::vector<std::string> all;
    for (const auto* list : {&added, &previous})
        for (const auto& path : *list) {
            std::string normal = withoutTrailingSlashes(path);
            if (!normal.empty() && std::find(all.begin(), all.end(), normal) == all.end())
                all.push_back(std::move(normal));
        }
    std::vector<std::string> merged;
    for (const auto& path : all)
        if (std::none_of(all.begin(), all.end(),
                         [&](const std::string& other) { return liesInside(path, other); }))
            merged.push_back(path);
    return merged;
}

std::string RGScanItemControl::displayNameForTargets(const std::vector<std::string>& paths) {
    if (paths.empty())
        return {};
    if (paths.size() == 1) {
        std::string path = withoutTrailingSlashes(paths.front());
        const auto slash = path.rfind('/');
        if (path == "/" || slash == std::string::npos)
            return path;
        return path.substr(slash + 1);
    }
    return formatf(localized("ScanItemControlString_FoldersCount"), static_cast<unsigned long>(paths.size()));
}

void RGScanItemControl::addFoldersForScan(const std::vector<std::string>& paths, bool startImmediately) {
    m_view.startArrowFlyAway();
    if (startImmediately) {
        updateIconAndTitleWithArray(mergedTargets(paths, {}));
        if (m_delegate)
            m_delegate->startScanFromDropZone();
        return;
    }
    updateIconAndTitleWithArray(mergedTargets(paths, m_items));
    m_refreshEnabled = true;
}

void RGScanItemControl::removeLastDroppedArray(const std::vector<std::string>& paths) {
    std::vector<std::string> rest;
    for (const auto& item : m_items)
        if (std::none_of(paths.begin(), paths.end(),
                         [&](const std::string& p) { return withoutTrailingSlashes(p) == item; }))
            rest.push_back(item);
    if (rest.empty()) {
        m_items.clear();
        if (m_delegate)
            m_delegate->stopScanFromDropZone();
        return;
    }
    updateIconAndTitleWithArray(rest);
}

void RGScanItemControl::updateIconAndTitleWithArray(const std::vector<std::string>& paths) {
    m_items = paths;
    const std::string name = displayNameForTargets(paths);
    m_view.showTargets(paths, name);
    if (m_delegate)
        m_delegate->addPathsForScan(paths, name);
}

bool RGScanItemControl::validateMenuItem(std::int64_t tag) const {
    return tag != kRefreshMenuItemTag || m_refreshEnabled;
}

void RGScanItemControl::refreshMenuAction() {
    if (m_refreshEnabled && m_delegate)
        m_delegate->refreshDrop();
}

void RGScanItemControl::mouseDown() {
    m_tracker.trackEvent("Dropzone", m_items.empty() ? "Attempt to Click Arrow" : "Attempt to Edit Folders",
                         "", 1);
}

void RGScanItemControl::startScanningAnimation() {
    m_view.startScanningAnimation();
}

void RGScanItemControl::setProgress(double fraction) {
    m_view.setProgress(fraction);
}

void RGScanItemControl::playFinishMark(FinishMark mark) {
    m_view.playFinishMark(mark);
}

void RGScanItemControl::setupArrowAnimation() {
    m_view.setupArrowAnimation();
}

void RGScanItemControl::resetAnimation() {
    m_items.clear();
    m_refreshEnabled = false;
    m_view.resetAnimation();
}

void RGScanItemControl::animationDidReset() {
    if (m_delegate)
        m_delegate->readyToResan();
}

} // namespace corvel

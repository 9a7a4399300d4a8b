#pragma once
// Tracker: the role that usage events are reported to, as (category, action, label,
// value), and the views the user is shown, by name. Corvel sends nothing anywhere: the
// shared tracker records nothing. Tests install a recording tracker to check which events
// the logic reports.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace corvel {

class Tracker {
public:
    virtual ~Tracker() = default;
    virtual void trackEvent(std::string_view category, std::string_view action, std::string_view label,
                            std::int64_t value) = 0;
    // A view the user now looks at ("Scan Progress", "Detailed Results"); dropped unless
    // the tracker keeps views.
    virtual void trackView(std::string_view /*name*/) {}
};

// Drops every event.
class NullTracker final : public Tracker {
public:
    void trackEvent(std::string_view /*category*/, std::string_view /*action*/, std::string_view /*label*/,
                    std::int64_t /*value*/) override {}
};

// The tracker the logic reports to; a NullTracker unless one was installed.
Tracker& sharedTracker();
// Installs a tracker (nullptr restores the null one). Not for use while events are reported.
void setSharedTracker(std::shared_ptr<Tracker> tracker);

} // namespace corvel

#pragma once
// AppsVersionChecking: updates the configuration of the library applications' versions.
// Linux has no library applications and fetches no configuration, so the application
// holds a null pointer; the rule that picks the call stays testable. Main thread.

namespace corvel {

class AppsVersionChecking {
public:
    virtual ~AppsVersionChecking() = default;
    virtual void updateConfigurationFile() = 0;
    virtual void checkSupportedVersions() = 0;
};

} // namespace corvel

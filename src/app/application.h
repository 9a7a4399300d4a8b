#pragma once
// CVApplication: the application object's one addition. Every menu command that was
// actually carried out is reported to the tracker as ("Menu Items", its label, "", 1),
// by the table from action names ("newScan:") to labels ("New Scan"). Main thread.

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace corvel {

class Tracker;

class CVApplication {
public:
    explicit CVApplication(Tracker& tracker);

    // Carries out the action through dispatch (which answers whether something took
    // it); when it was taken and came from a menu item, reports the mapped label.
    // Answers what dispatch answered.
    bool sendAction(std::string_view action, bool senderIsMenuItem, const std::function<bool()>& dispatch);

    // The table, built once for the process.
    static const std::map<std::string, std::string, std::less<>>& menuMapping();

private:
    Tracker& m_tracker;
};

} // namespace corvel

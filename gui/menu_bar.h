#pragma once
// MenuBar: the application's menus over CorvelAppDelegate. Every item carries the tag
// the delegate validates by and the action name its analytics table knows ("newScan:");
// a menu is validated as it opens (enabled state and the title the delegate gives), and
// an item is validated again when triggered, so a shortcut never runs a command its
// menu would have disabled. Triggering goes through CVApplication::sendAction. GUI thread.

#include <QMenuBar>
#include <QObject>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace corvel {
class CorvelAppDelegate;
}

namespace corvel::gui {

class MenuBar final : public QObject {
public:
    // quit: what File > Quit does (it asks the delegate through the shell).
    MenuBar(QMenuBar* bar, CorvelAppDelegate& delegate, std::function<void()> quit);

    // The item with this action name ("newScan:"); null when the bar has none.
    QAction* action(const std::string& name) const;
    // Validates every item as its menu would when opened.
    void validateAll();

private:
    QAction* add(QMenu* menu, const char* titleKey, const char* name, std::int64_t tag,
                 const QKeySequence& shortcut, std::function<void()> command);
    void validate(QAction* action);

    QMenuBar* m_bar;
    CorvelAppDelegate& m_delegate;
    std::vector<QAction*> m_actions;
};

} // namespace corvel::gui

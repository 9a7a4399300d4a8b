#include "return_clicks_buttons.h"

#include <QKeyEvent>
#include <QPushButton>

namespace corvel::gui {

bool ReturnClicksButtons::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::KeyPress)
        return false;
    const auto* key = static_cast<QKeyEvent*>(event);
    if ((key->key() != Qt::Key_Return && key->key() != Qt::Key_Enter) ||
        (key->modifiers() & ~Qt::KeypadModifier) != Qt::NoModifier)
        return false;
    auto* button = qobject_cast<QPushButton*>(watched);
    if (!button || !button->hasFocus() || !button->isEnabled() || !button->isVisible())
        return false;
    button->animateClick();
    return true;
}

} // namespace corvel::gui

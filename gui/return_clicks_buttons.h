#pragma once
// ReturnClicksButtons: Return or Enter on a focused push button clicks it, in every window
// of the application. Qt does that only inside dialogs; the main window's pages are not
// dialogs, so without this a keyboard user could reach a button with Tab and then only
// press it with Space. Installed once on the application; main thread only.

#include <QObject>

namespace corvel::gui {

class ReturnClicksButtons : public QObject {
public:
    explicit ReturnClicksButtons(QObject* parent = nullptr) : QObject(parent) {}

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
};

} // namespace corvel::gui

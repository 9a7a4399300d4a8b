#pragma once
// AboutPanel: the program's icon, name, version and a line on what it does and that
// nothing leaves the machine. Closes with Escape or its button. GUI thread.

#include <QDialog>

namespace corvel::gui {

class AboutPanel final : public QDialog {
public:
    explicit AboutPanel(const QString& version, QWidget* parent = nullptr);
};

} // namespace corvel::gui

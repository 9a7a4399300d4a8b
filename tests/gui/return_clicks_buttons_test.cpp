// Return on a focused push button clicks it outside dialogs too; nothing else is taken.

#include <QApplication>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QWidget>

#include "return_clicks_buttons.h"

using namespace corvel::gui;

class ReturnClicksButtonsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void returnClicksOnlyTheFocusedEnabledButton();
};

void ReturnClicksButtonsTest::returnClicksOnlyTheFocusedEnabledButton() {
    ReturnClicksButtons filter;
    qApp->installEventFilter(&filter);
    QWidget window;
    auto* layout = new QHBoxLayout(&window);
    auto* first = new QPushButton("First", &window);
    auto* second = new QPushButton("Second", &window);
    auto* field = new QLineEdit(&window);
    for (QWidget* w :
         {static_cast<QWidget*>(first), static_cast<QWidget*>(second), static_cast<QWidget*>(field)})
        layout->addWidget(w);
    int firstClicks = 0;
    int secondClicks = 0;
    connect(first, &QPushButton::clicked, [&] { ++firstClicks; });
    connect(second, &QPushButton::clicked, [&] { ++secondClicks; });
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QApplication::setActiveWindow(&window);

    const struct {
        QWidget* focus;
        Qt::Key key;
        Qt::KeyboardModifiers modifiers;
        int first, second; // clicks expected after the press
    } presses[] = {
        {second, Qt::Key_Return, Qt::NoModifier, 0, 1},
        {second, Qt::Key_Enter, Qt::KeypadModifier, 0, 2},
        {first, Qt::Key_Return, Qt::NoModifier, 1, 2},
        {first, Qt::Key_Return, Qt::ShiftModifier, 1, 2}, // a modified Return is someone else's
        {field, Qt::Key_Return, Qt::NoModifier, 1, 2},    // not a button
        {first, Qt::Key_A, Qt::NoModifier, 1, 2},
    };
    for (const auto& press : presses) {
        press.focus->setFocus(Qt::TabFocusReason);
        QTRY_VERIFY(press.focus->hasFocus());
        QTest::keyClick(press.focus, press.key, press.modifiers);
        QTRY_COMPARE(firstClicks, press.first);
        QTRY_COMPARE(secondClicks, press.second);
    }
    second->setEnabled(false);
    QTest::keyClick(second, Qt::Key_Return);
    QTest::qWait(50);
    QCOMPARE(secondClicks, 2);
    qApp->removeEventFilter(&filter);
}

int runReturnClicksButtonsTests(int argc, char** argv) {
    ReturnClicksButtonsTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "return_clicks_buttons_test.moc"

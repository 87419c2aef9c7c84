// The person at the keyboard: what the focus, the arrow keys and Return do, and where the focus is
// after the controls were locked.

#include "dialogdriver.h"

#include <QAbstractButton>
#include <QCheckBox>
#include <QGroupBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSpinBox>
#include <QTabBar>
#include <QTabWidget>
#include <QTest>

namespace {

const char s_readA[] = "A < e2 v0 i0 1";
const char s_readB[] = "B < e2 v0 i0 1";

// A dialog that is on the screen and has the keyboard, with two devices listed and none chosen.
class Session : public DialogDriver
{
public:
    Session()
    {
        dialog.show();
        listDevices({"A", "B"});
        activate(&dialog);
    }

    static void activate(QWidget *window)
    {
        window->activateWindow();
        if (!QTest::qWaitForWindowActive(window)) {
            qFatal("the window does not get the keyboard");
        }
    }

    // Nothing is current, highlighted or open.
    bool nothingIsChosen()
    {
        return list()->currentRow() == -1 && list()->selectedItems().isEmpty() &&
               !tabs()->isEnabled();
    }

    // The row that is current, which must be the only one highlighted; -2 if they differ.
    int chosenRow()
    {
        const QList<QListWidgetItem *> highlighted = list()->selectedItems();
        const bool agree = highlighted == QList<QListWidgetItem *>{list()->currentItem()};
        return agree ? list()->currentRow() : -2;
    }

    QPoint centreOf(int row) { return list()->visualItemRect(list()->item(row)).center(); }

    void clickRow(int row, Qt::KeyboardModifiers modifiers = {})
    {
        QTest::mouseClick(list()->viewport(), Qt::LeftButton, modifiers, centreOf(row));
    }

    void answerFlags() { emit flags->getRequestComplete(226, configData(QByteArray(1, 0)), 1); }

    void answerModes(char disabled)
    {
        for (int mode = 0; mode < 3; ++mode) {
            const QByteArray record = QByteArray(4, 1) + disabled;
            emit modes->getRequestComplete(179, configData(record), 5);
        }
    }

    // The first row is chosen and the page is open and read.
    void openPage(const char *page)
    {
        selectRow(0);
        openTab(page);
        if (qstrcmp(page, "tabSettings") == 0) {
            answerFlags();
        } else if (qstrcmp(page, "tabUserMode") == 0) {
            answerModes(0);
        }
        takeAsked();
    }

    QTabBar *tabBar() { return tabs()->tabBar(); }

    // The control of that object name; "tab bar" is the one that has no name of ours.
    QWidget *control(const char *name)
    {
        return qstrcmp(name, "tab bar") == 0 ? tabBar() : find<QWidget>(name);
    }

    // Gives the control the focus as the Tab key does.
    void focusOn(QWidget *widget)
    {
        widget->setFocus(Qt::TabFocusReason);
        if (QApplication::focusWidget() != widget) {
            qFatal("the control does not take the focus");
        }
    }
};

} // namespace

// Whose name is shown when they differ.
#define COMPARE_FOCUS(widget)                                                                      \
    do {                                                                                           \
        const QWidget *focused = QApplication::focusWidget();                                      \
        const QWidget *expected = (widget);                                                        \
        QVERIFY2(focused == expected, focused ? qPrintable(focused->objectName()) : "none");       \
    } while (false)

class TestKeyboard : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { prepareWithoutUsb(); }

    void focusAloneChoosesNothing();
    void focusThatComesBackAfterARescanChoosesNothing();
    void keysChooseFromThere_data();
    void keysChooseFromThere();
    void clickChoosesFromThere();
    void ctrlOnTheChosenRowChangesNothing_data();
    void ctrlOnTheChosenRowChangesNothing();
    void rowThatAMouseIsDraggedToIsTheOneThatIsLoaded();

    void returnStartsAnUpdateFromTwoPlacesOnly_data();
    void returnStartsAnUpdateFromTwoPlacesOnly();
    void returnStartsNothingWithNothingFocused();
    void returnAppliesOnTheApplyButtons();

    void focusReturnsAfterALoad();
    void focusReturnsAfterApply_data();
    void focusReturnsAfterApply();
    void focusReturnsAfterAnErrorBox();
    void focusReturnsAfterABoxThatOutlivesTheRequest();
    void focusReturnsWhenAnotherRowIsLoadedInBetween();
    void focusReturnsToTheRescanButton();
    void focusGoesToTheTabBarWhenThePageIsDisabled();
    void focusGoesToTheTabBarWhenTheControlIsDisabled();
    void focusGoesToTheListAfterAnUpdate();
    void focusGoesToTheListAfterARescanOfTheMouse();
    void focusStaysWhereThePersonHasPutIt_data();
    void focusStaysWhereThePersonHasPutIt();
    void focusReturnsAlthoughAKeyWasPressedThatMovesNothing();
    void focusReturnsAlthoughAModifierWasPressedElsewhere();
    void focusReturnsAlthoughAKeyWasPressedWithNothingFocused();
    void pressIsForgottenAtTheNextLock();
    void focusGoesToTheTabBarWhenThePageIsNotShown();
    void focusGoesToNoControlThatTakesNone();
    void focusThatWasNowhereIsGivenToNobody();
};

// ---- choosing a row

void TestKeyboard::focusAloneChoosesNothing()
{
    Session session;
    session.openTab("tabSettings");
    for (const Qt::FocusReason reason :
         {Qt::TabFocusReason, Qt::BacktabFocusReason, Qt::OtherFocusReason,
          Qt::ActiveWindowFocusReason, Qt::ShortcutFocusReason}) {
        session.find<QWidget>("rescanDevicesButton")->setFocus();
        session.list()->setFocus(reason);
        COMPARE_FOCUS(session.list());
        QVERIFY(session.nothingIsChosen());
    }
    QCOMPARE(session.takeAsked(), QStringList());

    session.find<QWidget>("rescanDevicesButton")->setFocus();
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    COMPARE_FOCUS(session.list());
    QVERIFY(session.nothingIsChosen());
}

void TestKeyboard::focusThatComesBackAfterARescanChoosesNothing()
{
    Session session;
    session.clickRow(1);
    QCOMPARE(session.chosenRow(), 1);
    session.listDevices({"A", "B"});
    COMPARE_FOCUS(session.list());

    QWidget other;
    other.show();
    Session::activate(&other);
    COMPARE_FOCUS(nullptr);
    Session::activate(&session.dialog);
    COMPARE_FOCUS(session.list());
    QVERIFY(session.nothingIsChosen());
}

void TestKeyboard::keysChooseFromThere_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<int>("row");
    QTest::newRow("Down") << int(Qt::Key_Down) << 0;
    QTest::newRow("Home") << int(Qt::Key_Home) << 0;
    QTest::newRow("A") << int(Qt::Key_A) << 0;
    QTest::newRow("B") << int(Qt::Key_B) << 1;
}

void TestKeyboard::keysChooseFromThere()
{
    QFETCH(int, key);
    QFETCH(int, row);
    Session session;
    session.openTab("tabSettings");
    session.focusOn(session.list());
    QTest::keyClick(session.list(), static_cast<Qt::Key>(key));
    QCOMPARE(session.chosenRow(), row);
    QCOMPARE(session.takeAsked(), QStringList{row == 0 ? s_readA : s_readB});
    COMPARE_FOCUS(session.list());

    // The focus chooses nothing else when it comes again.
    session.answerFlags();
    session.focusOn(session.find<QWidget>("rescanDevicesButton"));
    session.focusOn(session.list());
    QCOMPARE(session.chosenRow(), row);
    QCOMPARE(session.takeAsked(), QStringList());
}

void TestKeyboard::clickChoosesFromThere()
{
    Session session;
    session.openTab("tabSettings");
    session.focusOn(session.list());
    session.clickRow(1);
    QCOMPARE(session.chosenRow(), 1);
    QCOMPARE(session.takeAsked(), QStringList{s_readB});
}

void TestKeyboard::ctrlOnTheChosenRowChangesNothing_data()
{
    QTest::addColumn<bool>("click");
    QTest::newRow("click") << true;
    QTest::newRow("space bar") << false;
}

void TestKeyboard::ctrlOnTheChosenRowChangesNothing()
{
    QFETCH(bool, click);
    Session session;
    session.openPage("tabSettings");
    auto *progress = session.find<QWidget>("updateProgress");
    progress->setVisible(true);
    session.focusOn(session.list());
    for (int time = 0; time < 3; ++time) {
        if (click) {
            session.clickRow(0, Qt::ControlModifier);
        } else {
            QTest::keyClick(session.list(), Qt::Key_Space, Qt::ControlModifier);
        }
        QCOMPARE(session.chosenRow(), 0);
        QVERIFY(session.tabs()->isEnabled());
        QCOMPARE(session.takeAsked(), QStringList());
    }
    QVERIFY(!progress->isHidden());

    // Another row is chosen with Ctrl as without.
    session.clickRow(1, Qt::ControlModifier);
    QCOMPARE(session.chosenRow(), 1);
    QCOMPARE(session.takeAsked(), QStringList{s_readB});
}

// What the mouse was pressed on is loaded first; what it was released on must follow.
void TestKeyboard::rowThatAMouseIsDraggedToIsTheOneThatIsLoaded()
{
    Session session;
    session.openTab("tabSettings");
    QWidget *rows = session.list()->viewport();
    QTest::mousePress(rows, Qt::LeftButton, {}, session.centreOf(0));
    QCOMPARE(session.takeAsked(), QStringList{s_readA});
    session.answerFlags();
    QMouseEvent move(QEvent::MouseMove, session.centreOf(1), Qt::NoButton, Qt::LeftButton, {});
    QApplication::sendEvent(rows, &move);
    QTest::mouseRelease(rows, Qt::LeftButton, {}, session.centreOf(1));
    QCOMPARE(session.chosenRow(), 1);
    QCOMPARE(session.takeAsked(), QStringList{s_readB});
}

// ---- Return

void TestKeyboard::returnStartsAnUpdateFromTwoPlacesOnly_data()
{
    QTest::addColumn<QByteArray>("control");
    QTest::addColumn<bool>("starts");
    QTest::newRow("device list") << QByteArray("devicesList") << false;
    QTest::newRow("rescan") << QByteArray("rescanDevicesButton") << false;
    QTest::newRow("tab bar") << QByteArray("tab bar") << false;
    QTest::newRow("browse") << QByteArray("firmwareSelectButton") << false;
    QTest::newRow("firmware line") << QByteArray("firmwareLineEdit") << true;
    QTest::newRow("UPDATE") << QByteArray("updateButton") << true;
}

void TestKeyboard::returnStartsAnUpdateFromTwoPlacesOnly()
{
    QFETCH(QByteArray, control);
    QFETCH(bool, starts);
    for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Enter}) {
        Session session;
        session.openPage("tabFirmware");
        session.find<QLineEdit>("firmwareLineEdit")->setText("x.fw");
        auto *button = session.find<QPushButton>("updateButton");
        QVERIFY(button->isDefault() && button->autoDefault());
        session.focusOn(session.control(control.constData()));
        QTest::keyClick(QApplication::focusWidget(), key);
        QCOMPARE(session.takeAsked(), starts ? QStringList{"start A x.fw"} : QStringList());
        QCOMPARE(session.dialog.isEnabled(), !starts);
    }
}

// The keyboard then belongs to the dialog itself.
void TestKeyboard::returnStartsNothingWithNothingFocused()
{
    Session session;
    session.openPage("tabFirmware");
    session.find<QLineEdit>("firmwareLineEdit")->setText("x.fw");
    session.find<QWidget>("firmwareSelectButton")->setFocus();
    session.find<QWidget>("firmwareSelectButton")->clearFocus();
    QTest::keyClick(&session.dialog, Qt::Key_Return);
    QCOMPARE(session.takeAsked(), QStringList());
    QVERIFY(session.dialog.isVisible());
}

void TestKeyboard::returnAppliesOnTheApplyButtons()
{
    Session session;
    session.openPage("tabSettings");
    session.focusOn(session.find<QWidget>("updateSettingsButton"));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
    QCOMPARE(session.takeAsked(), QStringList{"A > e3 v0 i0 1 00"});
    emit session.flags->setRequestComplete(227);
    session.focusOn(session.find<QWidget>("keepAspectRatioCheckBox"));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
    QCOMPARE(session.takeAsked(), QStringList());
}

// ---- where the focus is afterwards

void TestKeyboard::focusReturnsAfterALoad()
{
    Session session;
    session.selectRow(0);
    session.focusOn(session.tabBar());
    QTest::keyClick(session.tabBar(), Qt::Key_Right);
    QCOMPARE(session.takeAsked(), QStringList{s_readA});
    QVERIFY(!session.tabs()->isEnabled());
    session.answerFlags();
    COMPARE_FOCUS(session.tabBar());
    QTest::keyClick(session.tabBar(), Qt::Key_Right);
    session.answerModes(0);
    COMPARE_FOCUS(session.tabBar());
}

void TestKeyboard::focusReturnsAfterApply_data()
{
    QTest::addColumn<QByteArray>("page");
    QTest::addColumn<QByteArray>("apply");
    QTest::addColumn<QByteArray>("control");
    const auto row = [](const char *page, const char *apply, const char *control) {
        QTest::newRow(control) << QByteArray(page) << QByteArray(apply) << QByteArray(control);
    };
    for (const char *control :
         {"reenumerateCheckBox", "audioSelectorCheckBox", "updateSettingsButton"}) {
        row("tabSettings", "updateSettingsButton", control);
    }
    for (const char *control :
         {"userMode1", "userMode2Width", "userMode3Height", "updateUserModesButton"}) {
        row("tabUserMode", "updateUserModesButton", control);
    }
}

void TestKeyboard::focusReturnsAfterApply()
{
    QFETCH(QByteArray, page);
    QFETCH(QByteArray, apply);
    QFETCH(QByteArray, control);
    Session session;
    session.openPage(page.constData());
    QWidget *place = session.control(control.constData());
    session.focusOn(place);
    session.click(apply.constData());
    QVERIFY(!session.tabs()->isEnabled());
    QVERIFY(QApplication::focusWidget() != place);
    for (int write = 0; write < 3 && !session.tabs()->isEnabled(); ++write) {
        emit session.flags->setRequestComplete(227);
        emit session.modes->setRequestComplete(179);
    }
    QVERIFY(session.tabs()->isEnabled());
    COMPARE_FOCUS(place);
}

// The box is another window: when it closes, Qt gives the focus to the dialog's first control.
void TestKeyboard::focusReturnsAfterAnErrorBox()
{
    Session session;
    session.openPage("tabSettings");
    QWidget *apply = session.find<QWidget>("updateSettingsButton");
    session.focusOn(apply);
    session.click("updateSettingsButton");
    session.boxes.whileOpen = [] {
        QTest::keyClick(QApplication::activeModalWidget(), Qt::Key_Tab);
    };
    emit session.flags->error(227, "refused");
    QCOMPARE(session.boxes.shown.size(), std::size_t(1));
    Session::activate(&session.dialog);
    session.focusOn(session.list()); // as Qt does when a message box closes
    emit session.flags->setRequestComplete(227);
    COMPARE_FOCUS(apply);
}

void TestKeyboard::focusReturnsAfterABoxThatOutlivesTheRequest()
{
    Session session;
    session.openPage("tabSettings");
    QWidget *apply = session.find<QWidget>("updateSettingsButton");
    session.focusOn(apply);
    session.click("updateSettingsButton");
    session.boxes.whileOpen = [&session] { emit session.flags->setRequestComplete(227); };
    emit session.flags->error(227, "refused");
    Session::activate(&session.dialog);
    COMPARE_FOCUS(apply);
}

// The second load begins before anybody could press a key.
void TestKeyboard::focusReturnsWhenAnotherRowIsLoadedInBetween()
{
    Session session;
    session.openPage("tabSettings");
    QWidget *box = session.find<QWidget>("keepAspectRatioCheckBox");
    session.focusOn(box);
    session.click("updateSettingsButton");
    session.selectRow(1);
    session.takeAsked();
    emit session.flags->setRequestComplete(227);
    QCOMPARE(session.takeAsked(), QStringList{s_readB});
    session.answerFlags();
    COMPARE_FOCUS(box);
}

void TestKeyboard::focusReturnsToTheRescanButton()
{
    Session session;
    session.selectRow(0);
    QWidget *rescan = session.find<QWidget>("rescanDevicesButton");
    session.focusOn(rescan);
    QTest::keyClick(rescan, Qt::Key_Space);
    QCOMPARE(session.takeAsked(), QStringList{"scan"});
    emit session.scanner->complete();
    COMPARE_FOCUS(rescan);
}

void TestKeyboard::focusGoesToTheTabBarWhenThePageIsDisabled()
{
    Session session;
    session.openPage("tabUserMode");
    session.focusOn(session.find<QWidget>("userMode1Width"));
    session.selectRow(1);
    emit session.modes->error(179, "no");
    emit session.modes->getRequestComplete(179, ConfigDeviceDataPtr(), 0);
    QVERIFY(!session.find<QWidget>("tabUserMode")->isEnabled());
    COMPARE_FOCUS(session.tabBar());
}

// The boxes of a mode that is switched off are disabled.
void TestKeyboard::focusGoesToTheTabBarWhenTheControlIsDisabled()
{
    Session session;
    session.openPage("tabUserMode");
    session.focusOn(session.find<QWidget>("userMode3Height"));
    session.selectRow(1);
    session.answerModes(1);
    QVERIFY(!session.find<QWidget>("userMode3Height")->isEnabled());
    COMPARE_FOCUS(session.tabBar());
}

// The device has to be chosen anew.
void TestKeyboard::focusGoesToTheListAfterAnUpdate()
{
    for (const bool fails : {false, true}) {
        Session session;
        session.openPage("tabFirmware");
        session.find<QLineEdit>("firmwareLineEdit")->setText("x.fw");
        session.focusOn(session.find<QWidget>("updateButton"));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
        QVERIFY(!session.dialog.isEnabled());
        if (fails) {
            emit session.updateTask->error("no");
            Session::activate(&session.dialog);
        }
        emit session.updateTask->complete();
        emit session.scanner->newDevice(describedDevice("A"));
        emit session.scanner->complete();
        COMPARE_FOCUS(session.list());
        QVERIFY(session.nothingIsChosen());
        QTest::keyClick(session.list(), Qt::Key_Down);
        QCOMPARE(session.chosenRow(), 0);
    }
}

void TestKeyboard::focusGoesToTheListAfterARescanOfTheMouse()
{
    Session session;
    session.openPage("tabSettings");
    session.focusOn(session.find<QWidget>("keepAspectRatioCheckBox"));
    session.click("rescanDevicesButton"); // which takes the focus from the keyboard only
    emit session.scanner->newDevice(describedDevice("A"));
    emit session.scanner->complete();
    COMPARE_FOCUS(session.list());
    QVERIFY(session.nothingIsChosen());
}

void TestKeyboard::focusStaysWhereThePersonHasPutIt_data()
{
    QTest::addColumn<bool>("byMouse");
    QTest::newRow("by the mouse") << true;
    QTest::newRow("by the Tab key") << false;
}

void TestKeyboard::focusStaysWhereThePersonHasPutIt()
{
    QFETCH(bool, byMouse);
    Session session;
    session.openPage("tabSettings");
    session.focusOn(session.find<QWidget>("keepAspectRatioCheckBox"));
    session.click("updateSettingsButton");
    QWidget *chosen = session.list();
    if (byMouse) {
        // As a system says it: to the window, and from there to the list.
        QTest::mouseClick(session.dialog.windowHandle(), Qt::LeftButton, {},
                          session.list()->viewport()->mapTo(&session.dialog, session.centreOf(0)));
    } else {
        chosen = session.find<QWidget>("rescanDevicesButton");
        for (int presses = 0; presses < 4 && QApplication::focusWidget() != chosen; ++presses) {
            QWidget *focused = QApplication::focusWidget();
            QTest::keyClick(focused ? focused : &session.dialog, Qt::Key_Tab);
        }
    }
    COMPARE_FOCUS(chosen);
    emit session.flags->setRequestComplete(227);
    COMPARE_FOCUS(chosen);
}

// Someone who presses a key while nothing has the focus has not gone anywhere.
void TestKeyboard::focusReturnsAlthoughAKeyWasPressedThatMovesNothing()
{
    Session session;
    session.openPage("tabSettings");
    QWidget *box = session.find<QWidget>("keepAspectRatioCheckBox");
    session.focusOn(box);
    session.click("updateSettingsButton");
    QTest::keyClick(&session.dialog, Qt::Key_Space);
    COMPARE_FOCUS(nullptr);
    emit session.flags->setRequestComplete(227);
    COMPARE_FOCUS(box);
}

// Qt may have moved the focus, as it does from a control that is disabled.
void TestKeyboard::focusReturnsAlthoughAModifierWasPressedElsewhere()
{
    for (const Qt::Key key : {Qt::Key_Shift, Qt::Key_Control, Qt::Key_Alt, Qt::Key_Meta}) {
        Session session;
        session.openPage("tabSettings");
        QWidget *box = session.find<QWidget>("keepAspectRatioCheckBox");
        session.focusOn(box);
        session.click("updateSettingsButton");
        session.focusOn(session.list());
        QTest::keyClick(session.list(), key);
        emit session.flags->setRequestComplete(227);
        COMPARE_FOCUS(box);
    }
}

void TestKeyboard::focusReturnsAlthoughAKeyWasPressedWithNothingFocused()
{
    Session session;
    session.openPage("tabSettings");
    QWidget *box = session.find<QWidget>("keepAspectRatioCheckBox");
    session.focusOn(box);
    session.click("updateSettingsButton");
    COMPARE_FOCUS(nullptr);
    QTest::keyClick(&session.dialog, Qt::Key_Space);
    session.focusOn(session.list()); // as Qt does when a message box closes
    emit session.flags->setRequestComplete(227);
    COMPARE_FOCUS(box);
}

void TestKeyboard::pressIsForgottenAtTheNextLock()
{
    Session session;
    session.openPage("tabSettings");
    QWidget *box = session.find<QWidget>("keepAspectRatioCheckBox");
    session.focusOn(box);
    session.click("updateSettingsButton");
    session.clickRow(0);
    emit session.flags->setRequestComplete(227);
    COMPARE_FOCUS(session.list());

    session.focusOn(box);
    session.click("updateSettingsButton");
    session.focusOn(session.list());
    emit session.flags->setRequestComplete(227);
    COMPARE_FOCUS(box);
}

void TestKeyboard::focusGoesToTheTabBarWhenThePageIsNotShown()
{
    Session session;
    session.openPage("tabSettings");
    session.focusOn(session.find<QWidget>("keepAspectRatioCheckBox"));
    session.click("updateSettingsButton");
    session.openTab("tabFirmware");
    emit session.flags->setRequestComplete(227);
    QVERIFY(session.find<QWidget>("keepAspectRatioCheckBox")->isEnabled());
    COMPARE_FOCUS(session.tabBar());
}

// A style may keep the keyboard from the tab bar.
void TestKeyboard::focusGoesToNoControlThatTakesNone()
{
    for (const bool listTakesIt : {true, false}) {
        Session session;
        session.openPage("tabSettings");
        session.focusOn(session.find<QWidget>("keepAspectRatioCheckBox"));
        session.tabBar()->setFocusPolicy(Qt::NoFocus);
        session.list()->setFocusPolicy(listTakesIt ? Qt::StrongFocus : Qt::NoFocus);
        session.click("updateSettingsButton");
        session.openTab("tabFirmware");
        emit session.flags->setRequestComplete(227);
        COMPARE_FOCUS(listTakesIt ? session.list() : nullptr);
    }
}

void TestKeyboard::focusThatWasNowhereIsGivenToNobody()
{
    Session session;
    session.openPage("tabSettings");
    session.find<QWidget>("keepAspectRatioCheckBox")->setFocus();
    session.find<QWidget>("keepAspectRatioCheckBox")->clearFocus();
    session.click("updateSettingsButton");
    emit session.flags->setRequestComplete(227);
    COMPARE_FOCUS(nullptr);
}

QTEST_MAIN(TestKeyboard)
#include "tst_keyboard.moc"

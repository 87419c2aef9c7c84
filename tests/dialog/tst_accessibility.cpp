// What a screen reader is told: asked of QAccessible, as it asks.

#include "dialogdriver.h"

#include <QAccessible>
#include <QLabel>
#include <QListWidget>
#include <QTabBar>
#include <QTabWidget>
#include <QTest>

#include <algorithm>
#include <map>

namespace {

struct Spoken
{
    const char *control;
    const char *name;
    const char *description;
};

// Each control that takes the focus, in the order of the Tab key. Its class comes from Qt.
const Spoken s_spoken[] = {
    {"rescanDevicesButton", "Refresh device list", "Refresh device list"},
    {"devicesList", "Devices",
     "The capture devices that were found. The chosen one is updated and configured."},
    {"firmwareLineEdit", "Firmware file",
     "The path of the package (.fw) that UPDATE writes to the chosen device"},
    {"firmwareSelectButton", "Select firmware file", "Browse for firmware file"},
    {"updateButton", "UPDATE", "Update firmware"},
    {"reenumerateCheckBox", "Use input signal resolution",
     "Use input signal resolution\nWhen selected, Capso adds the exact resolution of your input "
     "signal to the list of supported output resolutions. This is the only way to enable 1:1 "
     "capture for special frame sizes. The disadvantage of selecting this mode is that any change "
     "in input signal (programmatic or by connecting a different input) causes Capso to "
     "renegotiate its resolution with the application. This can cause an interruption in the "
     "captured stream. "},
    {"keepAspectRatioCheckBox", "Preserve aspect ratio",
     "Preserve aspect ratio\nWhen selected, Capso preserves the aspect ratio of your input "
     "signal by adding black bars to the sides or top and bottom of the frame if the application "
     "using the signal requests a frame size with a different aspect ratio."},
    {"performanceModeCheckBox", "Performance mode",
     "Performance mode\nWhen selected, Capso enters and exits system suspend mode (i.e. sleep) "
     "faster by disabling support for the Suspend/U3 USB power state. This means Capso starts "
     "working again faster after your computer wakes from a sleep state, at the cost of increased "
     "power consumption."},
    {"audioSelectorCheckBox", "Audio selector for multichannel inputs", ""},
    {"updateSettingsButton", "Apply settings", ""},
    {"userMode1", "User mode 1", ""},
    {"userMode1Width", "User mode 1 width", ""},
    {"userMode1Height", "User mode 1 height", ""},
    {"userMode2", "User mode 2", ""},
    {"userMode2Width", "User mode 2 width", ""},
    {"userMode2Height", "User mode 2 height", ""},
    {"userMode3", "User mode 3", ""},
    {"userMode3Height", "User mode 3 height", ""},
    {"userMode3Width", "User mode 3 width", ""},
    {"updateUserModesButton", "Apply user modes", ""},
};

QString spoken(QWidget *widget, QAccessible::Text text)
{
    QAccessibleInterface *interface = QAccessible::queryAccessibleInterface(widget);
    return interface ? interface->text(text) : QString();
}

// Every control of the dialog that takes the focus itself, in the order of the Tab key.
QList<QWidget *> focusable(QWidget *dialog)
{
    QList<QWidget *> found;
    for (QWidget *widget = dialog->nextInFocusChain(); widget != dialog;
         widget = widget->nextInFocusChain()) {
        if (widget->focusPolicy() != Qt::NoFocus && !widget->focusProxy() &&
            widget->window() == dialog) {
            found += widget;
        }
    }
    return found;
}

} // namespace

class TestAccessibility : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { prepareWithoutUsb(); }
    void everyControlSaysWhatItIs();
    void tabBarSaysWhatItIs();
    void noTwoControlsSayTheSame();
    void labelsBelongToTheirControls();
};

void TestAccessibility::everyControlSaysWhatItIs()
{
    UpdateRepair dialog;
    QStringList found;
    QStringList expected;
    const QTabBar *bar = dialog.findChild<QTabWidget *>("tabWidget")->tabBar();
    for (const QWidget *widget : focusable(&dialog)) {
        // The tab bar speaks for the page that it shows, see below. Without room it has two
        // buttons, which the toolkit has named.
        if (widget != bar && !bar->isAncestorOf(widget)) {
            found += widget->objectName();
        }
    }
    for (const Spoken &control : s_spoken) {
        expected += QLatin1String(control.control);
    }
    QCOMPARE(found.join(u'\n'), expected.join(u'\n'));

    for (const Spoken &control : s_spoken) {
        auto *widget = dialog.findChild<QWidget *>(QLatin1String(control.control));
        QCOMPARE(spoken(widget, QAccessible::Name), QString::fromUtf8(control.name));
        // How many line ends a mark-up's paragraph becomes is the toolkit's affair.
        QCOMPARE(spoken(widget, QAccessible::Description).simplified(),
                 QString::fromUtf8(control.description).simplified());
    }
}

// The bar has the focus, and the toolkit lets it say the current tab's name and nothing else. What
// the tabs are of is the name of what the bar belongs to.
void TestAccessibility::tabBarSaysWhatItIs()
{
    UpdateRepair dialog;
    auto *tabs = dialog.findChild<QTabWidget *>("tabWidget");
    QCOMPARE(tabs->focusProxy(), tabs->tabBar());
    QCOMPARE(spoken(tabs, QAccessible::Name), QString("Device pages"));
    const QStringList pages = {"Firmware", "Settings", "User Modes"};
    QCOMPARE(tabs->count(), int(pages.size()));
    const QAccessibleInterface *bar = QAccessible::queryAccessibleInterface(tabs->tabBar());
    for (int tab = 0; tab < tabs->count(); ++tab) {
        tabs->setCurrentIndex(tab);
        QCOMPARE(spoken(tabs->tabBar(), QAccessible::Name), pages[tab]);
        QCOMPARE(bar->child(tab)->text(QAccessible::Name), pages[tab]);
    }
}

void TestAccessibility::noTwoControlsSayTheSame()
{
    UpdateRepair dialog;
    auto *tabs = dialog.findChild<QTabWidget *>("tabWidget");
    for (int tab = 0; tab < tabs->count(); ++tab) {
        tabs->setCurrentIndex(tab);
        std::map<QString, QString> owners;
        for (QWidget *widget : focusable(&dialog)) {
            const QString name = spoken(widget, QAccessible::Name);
            QVERIFY2(!name.isEmpty(), qPrintable(widget->objectName()));
            const auto [owner, isNew] = owners.insert({name, widget->objectName()});
            QVERIFY2(isNew, qPrintable(QStringLiteral("%1 and %2 are both called %3")
                                           .arg(widget->objectName(), owner->second, name)));
        }
    }
}

// As a reader follows them: from the control to what labels it. The toolkit tells no label of a
// list.
void TestAccessibility::labelsBelongToTheirControls()
{
    const std::map<QString, QString> labels = {
        {"deviceListLabel", "devicesList"}, {"label", "firmwareLineEdit"},
        {"label_3", "userMode1Width"},      {"label_4", "userMode1Height"},
        {"label_5", "userMode2Width"},      {"label_6", "userMode2Height"},
        {"label_7", "userMode3Width"},      {"label_8", "userMode3Height"},
    };
    UpdateRepair dialog;
    std::map<QString, QString> found;
    for (const QLabel *label : dialog.findChildren<QLabel *>()) {
        if (QWidget *control = label->buddy()) {
            found[label->objectName()] = control->objectName();
            if (qobject_cast<const QListWidget *>(control)) {
                continue;
            }
            const auto relations =
                QAccessible::queryAccessibleInterface(control)->relations(QAccessible::Label);
            // Of a box in a group, the group is told as well.
            QVERIFY2(
                std::any_of(relations.begin(), relations.end(),
                            [label](const auto &told) { return told.first->object() == label; }),
                qPrintable(control->objectName()));
        }
    }
    QCOMPARE(found, labels);
}

QTEST_MAIN(TestAccessibility)
#include "tst_accessibility.moc"

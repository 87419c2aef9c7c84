// Why the list is empty, on simulated devices: the scan finds nothing, and the system knows why.
// Each text is photographed, light and dark, into pictures/ in the build folder.

#include "emptylisttexts.h"
#include "simulateddialog.h"

#include <QDir>
#include <QPalette>

#include <libusb.h>

#include <memory>

namespace {

QPalette darkPalette()
{
    QPalette palette(QColor(0x35, 0x35, 0x35));
    palette.setColor(QPalette::Base, QColor(0x23, 0x23, 0x23));
    for (const auto role : {QPalette::Text, QPalette::WindowText, QPalette::ButtonText}) {
        palette.setColor(role, Qt::white);
    }
    return palette;
}

// The scan has found nothing, and this is what the user is told.
void compareHint(SimulatedDialog &user, const char *text)
{
    QCOMPARE(user.rows(), QStringList());
    QCOMPARE(user.list()->accessibleDescription(), QString(text));
}

// The same with pictures, on a light screen and on a dark one.
void compareAndPhotograph(const char *text, const char *name)
{
    const QPalette light = QApplication::palette();
    for (const bool dark : {false, true}) {
        QApplication::setPalette(dark ? darkPalette() : light);
        SimulatedDialog user;
        compareHint(user, text);
        const QString file = QStringLiteral("%1/emptylist-%2-%3x-%4.png")
                                 .arg(CAPSO_PICTURES, name)
                                 .arg(user.dialog.devicePixelRatioF())
                                 .arg(dark ? "dark" : "light");
        QVERIFY(QDir().mkpath(CAPSO_PICTURES));
        QVERIFY(user.dialog.grab().save(file));
    }
    QApplication::setPalette(light);
}

// A libusb client of its own that holds interface 0 of the only recognised device.
class OtherProgram
{
public:
    OtherProgram()
    {
        if (libusb_init(&context) != 0) {
            qFatal("no second libusb");
        }
        handle = libusb_open_device_with_vid_pid(context, 0xE5C1, 0x3601);
        if (!handle || libusb_claim_interface(handle, 0) != 0) {
            qFatal("the device cannot be claimed");
        }
    }
    OtherProgram(const OtherProgram &) = delete;
    OtherProgram &operator=(const OtherProgram &) = delete;
    ~OtherProgram()
    {
        libusb_close(handle);
        libusb_exit(context);
    }

private:
    libusb_context *context = nullptr;
    libusb_device_handle *handle = nullptr;
};

} // namespace

class TestSimEmptyList : public SimulatedTest
{
    Q_OBJECT

private slots:
    void cleanup() {} // a claim that another program has refused is no mistake here
    void noDeviceAtAll();
    void noUsbBus();
    void onlyStrangers();
    void deviceThatThisUserMayNotOpen();
    void deviceThatAnotherProgramHolds();
    void deviceThatAnotherProgramHasReleased();
    void deviceThatDoesNotAnswer();
    void deviceWithoutANode();
    void driverAtTheInterfaceIsNoObstacle();
    void hintIsAboutTheBusAsItIsNow();
};

SCENE(TestSimEmptyList, noDeviceAtAll, "none")
{
    compareAndPhotograph(s_notFound, "none");
}

SCENE(TestSimEmptyList, noUsbBus, s_noUsbBus)
{
    SimulatedDialog user;
    compareHint(user, s_notFound);
}

SCENE(TestSimEmptyList, onlyStrangers, R"(
device keyboard
    product other
    id 046d:c31c
device camera
    product other
    id 046d:0825
    kernel-driver uvcvideo
    access denied
)")
{
    SimulatedDialog user;
    compareHint(user, s_notFound);
}

SCENE(TestSimEmptyList, deviceThatThisUserMayNotOpen, R"(
device v
    product velk3
    access denied
)")
{
    compareAndPhotograph(s_denied, "denied");
}

SCENE(TestSimEmptyList, deviceThatAnotherProgramHolds, "velk3")
{
    const OtherProgram other;
    compareAndPhotograph(s_held, "held");
}

SCENE(TestSimEmptyList, deviceThatAnotherProgramHasReleased, "velk3")
{
    auto other = std::make_unique<OtherProgram>();
    SimulatedDialog user;
    compareHint(user, s_held);
    other.reset();
    user.click("rescanDevicesButton");
    QVERIFY(user.waitForScan(2));
    QCOMPARE(user.rows().size(), 1);
    QVERIFY(user.list()->accessibleDescription() != s_held);
}

SCENE(TestSimEmptyList, deviceThatDoesNotAnswer, R"(
device v
    product velk3
fault v FX3_STATUS every stall
)")
{
    compareAndPhotograph(s_silent, "silent");
}

SCENE(TestSimEmptyList, deviceWithoutANode, R"(
device v
    product velk3
fault v open no-device
)")
{
    SimulatedDialog user;
    compareHint(user, s_silent);
}

// The program detaches it for each request; what makes this list empty is the device's silence.
SCENE(TestSimEmptyList, driverAtTheInterfaceIsNoObstacle, R"(
device v
    product velk3
    kernel-driver uvcvideo
fault v FX3_STATUS every stall
)")
{
    SimulatedDialog user;
    compareHint(user, s_silent);
    simulation::control("clear-faults");
    user.click("rescanDevicesButton");
    QVERIFY(user.waitForScan(2));
    QCOMPARE(user.rows().size(), 1);
}

SCENE(TestSimEmptyList, hintIsAboutTheBusAsItIsNow, R"(
device v
    product velk3
fault v FX3_STATUS every stall
)")
{
    SimulatedDialog user;
    compareHint(user, s_silent);
    simulation::control("unplug v");
    user.click("rescanDevicesButton");
    QVERIFY(user.waitForScan(2));
    compareHint(user, s_notFound);
    simulation::control("clear-faults");
    simulation::control("replug v");
    user.click("rescanDevicesButton");
    QVERIFY(user.waitForScan(3));
    QCOMPARE(user.rows().size(), 1);
}

SIMULATED_DIALOG_TEST_MAIN(TestSimEmptyList)
#include "tst_dialogsim_emptylist.moc"

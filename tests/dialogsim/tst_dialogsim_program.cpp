// The program's own main() on simulated devices: that it starts, scans and ends in every situation,
// and leaves no device open.

#include "capturedoutput.h"
#include "messageboxes.h"
#include "simulatedtest.h"
#include "simulation.h"
#include "updaterepair.h"

#include <QApplication>
#include <QCheckBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTabWidget>
#include <QTest>
#include <QTimer>

#include <libusb.h>

#include <functional>
#include <iostream>
#include <utility>

int capsoMain(int argc, char **argv);

// The first event of the application object is where a test gets hold of the running program.
static std::function<void()> s_whenRunning;

namespace {

void startWhenRunning()
{
    if (auto start = std::exchange(s_whenRunning, nullptr)) {
        QTimer::singleShot(0, qApp, start);
    }
}

} // namespace
Q_COREAPP_STARTUP_FUNCTION(startWhenRunning)

class TestSimProgram : public SimulatedTest
{
    Q_OBJECT

private slots:
    void startsAndEndsWithoutAUsbBus();
    void startsAndEndsWithoutDevices();
    void startsAndEndsWithTwentyDevices();
    void startsAndEndsWithEveryProduct();
    void closingDuringTheFirstScan();
    void closingDuringAnUpdate();
    void closingDuringARepair();
    void closingDuringARead();
    void closingDuringAWriteOfTheModes();
    void closingDuringAPoll();
    void closingWhileARequestWaitsForAPoll();

private:
    // Runs the program, does the steps in it, and closes its window. Returns its exit code.
    int run(const std::function<void()> &steps);
    void selectFirstRow();
    void findNothing();

    UpdateRepair *dialog = nullptr;
    int rows = -1; // of the list when the window was closed

    template<typename Widget> Widget *find(const char *name)
    {
        return dialog->findChild<Widget *>(QLatin1String(name));
    }
};

int TestSimProgram::run(const std::function<void()> &steps)
{
    s_whenRunning = [&] {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            if (auto *found = qobject_cast<UpdateRepair *>(widget)) {
                dialog = found;
            }
        }
        steps();
        rows = find<QListWidget>("devicesList")->count();
        dialog->close();
    };
    char name[] = "capso-config";
    char *arguments[] = {name, nullptr};
    return capsoMain(1, arguments);
}

void TestSimProgram::selectFirstRow()
{
    auto *list = find<QListWidget>("devicesList");
    EVENTUALLY(list->count() > 0);
    list->setCurrentRow(0);
    EVENTUALLY(find<QTabWidget>("tabWidget")->isEnabled());
}

// Waits for the end of the first scan: the tabs open for a row only when no scan is running any
// more.
void TestSimProgram::findNothing()
{
    auto *list = find<QListWidget>("devicesList");
    QCOMPARE(list->count(), 0);
    list->addItem("row");
    list->setCurrentRow(0);
    EVENTUALLY(find<QTabWidget>("tabWidget")->isEnabled());
    list->clear();
}

namespace {

// Nothing else opens the device after the scan: what is claimed and not closed is a poll.
bool pollIsUnderWay(const QString &device)
{
    return simulation::countEvents(device, "claim") > simulation::countEvents(device, "close");
}

} // namespace

// ---- starting

SCENE(TestSimProgram, startsAndEndsWithoutAUsbBus, s_noUsbBus)
{
    // Not even a root hub is there. (Whether libusb minds depends on how it was built.)
    if (libusb_init(nullptr) >= 0) {
        libusb_device **devices = nullptr;
        const auto count = libusb_get_device_list(nullptr, &devices);
        libusb_free_device_list(devices, 1);
        libusb_exit(nullptr);
        QCOMPARE(int(count), 0);
    }
    QCOMPARE(run([this] { findNothing(); }), 0);
    QCOMPARE(rows, 0);
}

SCENE(TestSimProgram, startsAndEndsWithoutDevices, "none")
{
    QCOMPARE(run([this] { findNothing(); }), 0);
    QCOMPARE(rows, 0);
}

SCENE(TestSimProgram, startsAndEndsWithTwentyDevices, "twenty")
{
    QCOMPARE(run([this] { EVENTUALLY(find<QListWidget>("devicesList")->count() == 20); }), 0);
    QCOMPARE(rows, 20);
}

SCENE(TestSimProgram, startsAndEndsWithEveryProduct, "several")
{
    QCOMPARE(run([this] { EVENTUALLY(find<QListWidget>("devicesList")->count() == 3); }), 0);
    QCOMPARE(rows, 3);
}

// ---- ending

SCENE(TestSimProgram, closingDuringTheFirstScan, R"(
device v
    product velk3
    count 2
fault v FX3_STATUS delay 700
)")
{
    QCOMPARE(run([] {
                 EVENTUALLY(simulation::countEvents("v1", "claim") +
                                simulation::countEvents("v2", "claim") >
                            0);
             }),
             0);
    QCOMPARE(rows, 0);
    // The scan has gone on to its end.
    QCOMPARE(simulation::requests("v1"), QStringList{"< c8 v0 i0 1 01"});
    QCOMPARE(simulation::requests("v2"), QStringList{"< c8 v0 i0 1 01"});
}

SCENE(TestSimProgram, closingDuringAnUpdate, "velk3")
{
    const CapturedStream log(std::clog);
    QCOMPARE(run([this] {
                 selectFirstRow();
                 find<QLineEdit>("firmwareLineEdit")->setText(simulation::packageFile("velk3"));
                 find<QPushButton>("updateButton")->click();
                 EVENTUALLY(simulation::requests("velk3").contains("> c5 v0 i0 0"));
                 QVERIFY(!simulation::requests("velk3").contains("> c1 v0 i0 0"));
             }),
             0);
    QCOMPARE(simulation::requests("velk3").last(), QString("> d4 v0 i0 0"));
    const QStringList lines = QString::fromStdString(log.text()).split('\n');
    QCOMPARE(lines.filter("Update "),
             (QStringList{"Update under way, waiting for its end", "Update ended"}));
    for (const char *image : {"fx3", "fpga", "edid"}) {
        QCOMPARE(simulation::memory("velk3", image), simulation::packagedImage("velk3", image));
    }
}

SCENE(TestSimProgram, closingDuringARepair, "hard-sorn3")
{
    QCOMPARE(run([this] {
                 selectFirstRow();
                 find<QLineEdit>("firmwareLineEdit")->setText(simulation::packageFile("sorn3"));
                 find<QPushButton>("updateButton")->click();
                 EVENTUALLY(simulation::countEvents("sorn3", "start") > 0);
             }),
             0);
    QVERIFY(simulation::requests("sorn3").contains("> c3 v0 i0 0"));
    for (const char *image : {"fx3", "fpga"}) {
        QCOMPARE(simulation::memory("sorn3", image), simulation::packagedImage("sorn3", image));
    }
}

SCENE(TestSimProgram, closingDuringARead, R"(
device v
    product velk3
fault v GET_DEVICE_FLAGS delay 700
)")
{
    QCOMPARE(run([this] {
                 selectFirstRow();
                 const int before = simulation::mark();
                 find<QTabWidget>("tabWidget")->setCurrentIndex(1);
                 EVENTUALLY(simulation::countEvents("v", "claim", before) > 0);
             }),
             0);
    QCOMPARE(simulation::configRequests("v"), QStringList{"< e2 v0 i0 1 00"});
}

// The request under way is finished; those that would have followed it are not sent. (A busy
// machine may get to the second before it closes the window.)
SCENE(TestSimProgram, closingDuringAWriteOfTheModes, R"(
device v
    product velk3
fault v USER_MODE out every delay 700
)")
{
    QCOMPARE(run([this] {
                 selectFirstRow();
                 find<QTabWidget>("tabWidget")->setCurrentIndex(2);
                 EVENTUALLY(find<QTabWidget>("tabWidget")->isEnabled());
                 const int before = simulation::mark();
                 find<QPushButton>("updateUserModesButton")->click();
                 EVENTUALLY(simulation::countEvents("v", "claim", before) > 0);
             }),
             0);
    const QStringList writes = simulation::configRequests("v").filter("> ");
    QCOMPARE(writes.first(), QString("> b3 v0 i0 5 0000000000"));
    QVERIFY(writes.size() < 3);
}

SCENE(TestSimProgram, closingDuringAPoll, R"(
device v
    product velk3
fault v INPUT_STATUS every delay 700
)")
{
    QCOMPARE(run([this] {
                 selectFirstRow();
                 EVENTUALLY(pollIsUnderWay("v"));
             }),
             0);
    QVERIFY(simulation::requests("v").last().startsWith("< b2 v0 i0 29"));
}

SCENE(TestSimProgram, closingWhileARequestWaitsForAPoll, R"(
device v
    product velk3
fault v INPUT_STATUS every delay 700
)")
{
    QCOMPARE(run([this] {
                 selectFirstRow();
                 EVENTUALLY(pollIsUnderWay("v"));
                 find<QTabWidget>("tabWidget")->setCurrentIndex(1);
             }),
             0);
    QCOMPARE(simulation::configRequests("v"), QStringList());
}

// The program makes its own application object.
int main(int argc, char **argv)
{
    return runSimulated(argc, argv, [](int count, char **words) {
        TestSimProgram test;
        return QTest::qExec(&test, count, words);
    });
}
#include "tst_dialogsim_program.moc"

// The whole program on a scripted libusb, as its user has it: main(), the dialog, the mouse, a
// package file in a folder whose name is not ASCII, and the real pauses of an update.
//
// With CAPSO_PICTURES=FOLDER in the environment it stops where somebody might want to see it: it
// leaves NAME.ready in the folder, in which stands where the list is on the screen, and goes on
// when that file is gone.

#include "brokendevice.h"
#include "devicescanner.h"
#include "emptylisttexts.h"
#include "messageboxes.h"
#include "products.h"
#include "scriptedlibusb.h"
#include "scriptedrequests.h"
#include "updaterepair.h"

#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QFile>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QSemaphore>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTabBar>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

int capsoMain(int argc, char **argv);

// The first event of the application object is where a test gets hold of the running program.
static std::function<void()> s_whenRunning;

namespace {

constexpr int s_patience = 60000; // ms; far more than anything takes

const QStringList s_scan{"< c8 v0 i0 1 t1000"}; // of a running device

void startWhenRunning()
{
    if (auto start = std::exchange(s_whenRunning, nullptr)) {
        QTimer::singleShot(0, qApp, start);
    }
}

// A device that runs, with a signal at its input.
void plugGrabber(ScriptedUsb &usb)
{
    libusb_device *device = usb.plug("grabber", velk3.runningId);
    device->serialString = 1;
    device->strings = {{1, "A1B2C3D4"}, {2, "VELK3 Grabber"}, {3, "1.2.3"}};
}

// What such a device answers to the requests of the settings and of the input signal.
std::optional<int> configuration(const ScriptedTransfer &transfer)
{
    static const QByteArray s_signal = QByteArray::fromHex("524742000000000000000000" // "RGB"
                                                           "48444d4900000000"         // "HDMI"
                                                           "60ea0000" // 60.000 frames per second
                                                           "80073804" // 1920x1080
                                                           "00");     // progressive
    static const QByteArray s_flags = QByteArray::fromHex("03");
    static const QByteArray s_modes[] = {QByteArray::fromHex("0005d00200"),  // 1280x720
                                         QByteArray::fromHex("20035802 00"), // 800x600
                                         QByteArray::fromHex("0000000001")}; // off
    if (!transfer.isIn()) {
        return {};
    }
    QByteArray bytes;
    switch (transfer.request) {
    case 0xB2:
        bytes = s_signal;
        break;
    case 0xE2:
        bytes = s_flags;
        break;
    case 0xB3:
        bytes = s_modes[transfer.index % 3];
        break;
    default:
        return {};
    }
    if (bytes.size() != transfer.length) {
        return LIBUSB_ERROR_PIPE;
    }
    std::memcpy(transfer.buffer, bytes.constData(), transfer.length);
    return transfer.length;
}

// The lines of an update's requests: less the status polls, which run by themselves.
QStringList withoutPolls(const ScriptedUsb &usb)
{
    QStringList lines;
    for (const QString &line : usb.describedTransfers()) {
        if (!line.startsWith("< b2 ")) {
            lines.append(line);
        }
    }
    return lines;
}

// Of several blocks each.
PackageContent someContent()
{
    PackageContent images = smallContent(velk3);
    images.fx3 = patternBytes(10000, 2);
    images.fpga = patternBytes(9000, 3);
    images.edid = edidText(edidBlocks(2));
    return images;
}

} // namespace
Q_COREAPP_STARTUP_FUNCTION(startWhenRunning)

class TestProgram : public QObject
{
    Q_OBJECT

private slots:
    void emptyListSaysWhatToDo();
    void pagesShowWhatTheDeviceHolds();
    void updateFromAFileToItsEnd();
    void packageForAnotherDeviceIsRefused();
    void failureIsSaidAndTheNextUpdateWorks();
    void brokenDeviceIsRepaired();
    void deviceWithoutADriverIsListedWhereOneCanBeInstalled();

private:
    // Runs the program, does the steps in it, and closes its window. Returns its exit code.
    int run(const std::function<void()> &steps);
    template<typename Widget> Widget *find(const char *objectName)
    {
        auto *widget = dialog->findChild<Widget *>(QLatin1String(objectName));
        if (!widget) {
            qFatal("no widget %s", objectName);
        }
        return widget;
    }
    void click(const char *objectName)
    {
        QTest::mouseClick(find<QWidget>(objectName), Qt::LeftButton);
    }
    QStringList rows();
    void selectTheOnlyRow();
    void showPage(int index);
    // Writes a package with these entries and starts the update with it.
    void startUpdate(const std::vector<PackageEntry> &package);
    QString barText() { return find<QProgressBar>("updateProgress")->text(); }
    QString warning();
    void photograph(const char *name);

    QTemporaryDir folder{QDir::tempPath() + QStringLiteral("/capso прошивка 更新 XXXXXX")};
    UpdateRepair *dialog = nullptr;
    std::unique_ptr<MessageBoxes> boxes;
    bool ended = false; // the steps came to their end
};

int TestProgram::run(const std::function<void()> &steps)
{
    ended = false;
    s_whenRunning = [&] {
        boxes = std::make_unique<MessageBoxes>();
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            if (auto *found = qobject_cast<UpdateRepair *>(widget)) {
                dialog = found;
            }
        }
        steps();
        boxes.reset();
        dialog->close();
    };
    char name[] = "capso-config";
    char *arguments[] = {name, nullptr};
    return capsoMain(1, arguments);
}

QStringList TestProgram::rows()
{
    QStringList texts;
    auto *list = find<QListWidget>("devicesList");
    for (int row = 0; row < list->count(); ++row) {
        texts.append(list->item(row)->text());
    }
    return texts;
}

void TestProgram::selectTheOnlyRow()
{
    auto *list = find<QListWidget>("devicesList");
    QTRY_COMPARE_WITH_TIMEOUT(list->count(), 1, s_patience);
    QTRY_VERIFY_WITH_TIMEOUT(list->isEnabled(), s_patience);
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                      list->visualItemRect(list->item(0)).center());
    QTRY_VERIFY_WITH_TIMEOUT(find<QTabWidget>("tabWidget")->isEnabled(), s_patience);
}

void TestProgram::showPage(int index)
{
    auto *tabs = find<QTabWidget>("tabWidget");
    QTest::mouseClick(tabs->tabBar(), Qt::LeftButton, {}, tabs->tabBar()->tabRect(index).center());
    QCOMPARE(tabs->currentIndex(), index);
    QTRY_VERIFY_WITH_TIMEOUT(tabs->isEnabled(), s_patience);
}

void TestProgram::startUpdate(const std::vector<PackageEntry> &package)
{
    QVERIFY(folder.isValid());
    const QString path = folder.filePath(QStringLiteral("прошивка 更新.fw"));
    writeFile(path, zipArchive(package));
    find<QLineEdit>("firmwareLineEdit")->setText(path);
    click("updateButton");
    QVERIFY(!dialog->isEnabled());
    QCOMPARE(warning(), QStringLiteral("DO NOT INTERRUPT"));
}

QString TestProgram::warning()
{
    const auto *label = find<QLabel>("labelDoNotInterrupt");
    return label->isVisible() ? label->text() : QString();
}

void TestProgram::photograph(const char *name)
{
    const QString pictures = qEnvironmentVariable("CAPSO_PICTURES");
    if (pictures.isEmpty()) {
        return;
    }
    const QString ready = QStringLiteral("%1/%2.ready").arg(pictures, QLatin1String(name));
    QTest::qWait(500); // what is to be seen has been drawn
    const QWidget *list = find<QListWidget>("devicesList")->viewport();
    const QPoint corner = list->mapToGlobal(QPoint());
    writeFile(ready, QStringLiteral("%1 %2 %3 %4\n")
                         .arg(corner.x())
                         .arg(corner.y())
                         .arg(list->width())
                         .arg(list->height())
                         .toLatin1());
    QTRY_VERIFY_WITH_TIMEOUT(!QFile::exists(ready), s_patience);
}

void TestProgram::emptyListSaysWhatToDo()
{
    ScriptedUsb usb;
    const int result = run([&] {
        const auto *list = find<QListWidget>("devicesList");
        QTRY_COMPARE_WITH_TIMEOUT(list->accessibleDescription(), QString(s_notFound), s_patience);
        QCOMPARE(list->count(), 0);
        QTRY_VERIFY_WITH_TIMEOUT(list->isEnabled(), s_patience);
        photograph("empty-list");
        ended = true;
    });
    QVERIFY(ended);
    QCOMPARE(result, 0);
}

void TestProgram::pagesShowWhatTheDeviceHolds()
{
    ScriptedUsb usb;
    plugGrabber(usb);
    usb.onTransfer(configuration);
    const int result = run([&] {
        selectTheOnlyRow();
        QCOMPARE(rows(), QStringList{"VELK3 Grabber (A1B2C3D4, 1.2.3) [e5c1:3601]"});
        QTRY_COMPARE_WITH_TIMEOUT(find<QLabel>("inputSignalLabel")->text(),
                                  QStringLiteral("HDMI 1920x1080p@60, RGB"), s_patience);
        photograph("firmware");
        showPage(1);
        QVERIFY(find<QCheckBox>("reenumerateCheckBox")->isChecked());
        QVERIFY(find<QCheckBox>("keepAspectRatioCheckBox")->isChecked());
        QVERIFY(!find<QCheckBox>("performanceModeCheckBox")->isChecked());
        QVERIFY(!find<QCheckBox>("audioSelectorCheckBox")->isChecked());
        photograph("settings");
        showPage(2);
        QCOMPARE(find<QSpinBox>("userMode1Width")->value(), 1280);
        QCOMPARE(find<QSpinBox>("userMode1Height")->value(), 720);
        QVERIFY(find<QGroupBox>("userMode1")->isChecked());
        QCOMPARE(find<QSpinBox>("userMode2Width")->value(), 800);
        QCOMPARE(find<QSpinBox>("userMode2Height")->value(), 600);
        QVERIFY(find<QGroupBox>("userMode2")->isChecked());
        QVERIFY(!find<QGroupBox>("userMode3")->isChecked());
        photograph("user-modes");
        ended = true;
    });
    QVERIFY(ended);
    QCOMPARE(result, 0);
}

void TestProgram::updateFromAFileToItsEnd()
{
    const PackageContent images = someContent();
    ScriptedUsb usb;
    plugGrabber(usb);
    // The device waits with its answer to the bitstream's start until the window has been looked
    // at.
    QSemaphore looked;
    usb.onTransfer([&looked](const ScriptedTransfer &transfer) {
        if (transfer.request == 0xC1) {
            looked.tryAcquire(1, s_patience);
        }
        return configuration(transfer);
    });
    const int result = run([&] {
        selectTheOnlyRow();
        usb.clearLog();
        startUpdate(packageEntries(velk3, images));
        QTRY_COMPARE_WITH_TIMEOUT(barText(), QStringLiteral("34%"), s_patience);
        QVERIFY(!find<QTabWidget>("tabWidget")->isEnabled());
        photograph("update");
        looked.release();
        QTRY_COMPARE_WITH_TIMEOUT(barText(), QStringLiteral("Update Completed"), s_patience);
        QCOMPARE(warning(), QString());
        QVERIFY(dialog->isEnabled());
        photograph("update-completed");
        QTRY_COMPARE_WITH_TIMEOUT(rows().size(), 1, s_patience); // of the scan that follows
        QVERIFY(boxes->shown.empty());
        ended = true;
    });
    QVERIFY(ended);
    QCOMPARE(result, 0);

    QCOMPARE(withoutPolls(usb), microcodeRequests(*images.fx3) +
                                    bitstreamRequests(velk3, *images.fpga) +
                                    edidRequests(edidBlocks(2)) + s_scan);
}

void TestProgram::packageForAnotherDeviceIsRefused()
{
    ScriptedUsb usb;
    plugGrabber(usb);
    const int result = run([&] {
        selectTheOnlyRow();
        usb.clearLog();
        startUpdate(packageEntries(sorn3, smallContent(sorn3)));
        QTRY_COMPARE_WITH_TIMEOUT(boxes->shown.size(), std::size_t(1), s_patience);
        QCOMPARE(boxes->shown[0].title, QStringLiteral("Update Error"));
        QCOMPARE(boxes->shown[0].text, QStringLiteral("Selected device and firmware incompatible"));
        QTRY_VERIFY_WITH_TIMEOUT(dialog->isEnabled(), s_patience);
        QCOMPARE(barText(), QStringLiteral("Update Error"));
        QCOMPARE(warning(), QStringLiteral("Do not disconnect. Retry. Call Support."));
        QTRY_COMPARE_WITH_TIMEOUT(rows().size(), 1, s_patience);
        ended = true;
    });
    QVERIFY(ended);
    QCOMPARE(result, 0);
    // Nothing but the scan that follows.
    QCOMPARE(withoutPolls(usb), s_scan);
}

void TestProgram::failureIsSaidAndTheNextUpdateWorks()
{
    ScriptedUsb usb;
    plugGrabber(usb);
    bool unplugged = true;
    usb.onTransfer([&unplugged](const ScriptedTransfer &transfer) -> std::optional<int> {
        if (unplugged && transfer.request == 0xC2) {
            return LIBUSB_ERROR_TIMEOUT;
        }
        return configuration(transfer);
    });
    const int result = run([&] {
        boxes->whileOpen = [this] { photograph("error-box"); };
        selectTheOnlyRow();
        startUpdate(packageEntries(velk3, someContent()));
        QTRY_VERIFY_WITH_TIMEOUT(dialog->isEnabled(), s_patience);
        QCOMPARE(boxes->shown.size(), std::size_t(1));
        QCOMPARE(boxes->shown[0].icon, QMessageBox::Critical);
        QCOMPARE(boxes->shown[0].text,
                 QStringLiteral("Error: failed to write FPGA header block:  LIBUSB_ERROR_TIMEOUT"));
        QCOMPARE(barText(), QStringLiteral("Update Error"));
        QCOMPARE(warning(), QStringLiteral("Do not disconnect. Retry. Call Support."));

        unplugged = false;
        selectTheOnlyRow();
        startUpdate(packageEntries(velk3, someContent()));
        QTRY_COMPARE_WITH_TIMEOUT(barText(), QStringLiteral("Update Completed"), s_patience);
        QCOMPARE(boxes->shown.size(), std::size_t(1));
        QTRY_COMPARE_WITH_TIMEOUT(rows().size(), 1, s_patience);
        ended = true;
    });
    QVERIFY(ended);
    QCOMPARE(result, 0);
}

void TestProgram::brokenDeviceIsRepaired()
{
    constexpr quint32 ram = 0x40003000;
    PackageContent images = someContent();
    const std::vector<BootSection> sections{{ram, patternBytes(10000, 5)}};
    images.sandbox = bootImage(sections, ram);
    ScriptedUsb usb;
    BrokenDevice device(usb, "04b4:00f3");
    device.loader->strings = {{2, "WestBridge"}};
    device.comesBackAs("sandbox", velk3.sandboxId);
    QSemaphore reached;
    QSemaphore looked;
    device.fault = [&](const ScriptedTransfer &transfer) -> std::optional<int> {
        if (transfer.request == 0xC1) {
            reached.release();
            looked.tryAcquire(1, s_patience);
        }
        return {};
    };
    const int result = run([&] {
        selectTheOnlyRow();
        QCOMPARE(rows(), QStringList{"WestBridge (FFFFFFFF, ) [04b4:00f3] (Hard Repair Mode)"});
        usb.clearLog();
        startUpdate(packageEntries(velk3, images));
        QTRY_COMPARE_WITH_TIMEOUT(usb.callsOf("open"), (QStringList{"open loader", "open sandbox"}),
                                  s_patience);
        QTRY_COMPARE_WITH_TIMEOUT(reached.available(), 1, s_patience);
        QTRY_VERIFY_WITH_TIMEOUT(barText().endsWith('%'), s_patience);
        QCOMPARE(warning(), QStringLiteral("DO NOT INTERRUPT"));
        photograph("repair");
        looked.release();
        QTRY_COMPARE_WITH_TIMEOUT(barText(), QStringLiteral("Update Completed"), s_patience);
        QVERIFY(boxes->shown.empty());
        QTRY_COMPARE_WITH_TIMEOUT(rows().size(), 1, s_patience);
        ended = true;
    });
    QVERIFY(ended);
    QCOMPARE(result, 0);

    QCOMPARE(withoutPolls(usb),
             loadingRequests(sections) + startRequests(ram) + microcodeRequests(*images.fx3) +
                 bitstreamRequests(velk3, *images.fpga) + edidRequests(edidBlocks(2)));
}

// Where a libwdi.dll lies beside this program, a double that writes down what it is asked, the
// device can be opened as soon as that has been asked for an installation. Elsewhere nobody can
// install a driver, and the device is not listed.
void TestProgram::deviceWithoutADriverIsListedWhereOneCanBeInstalled()
{
    QString beside;
    const auto installations = [&beside] {
        QFile calls(beside + QStringLiteral("/libwdi.dll.calls"));
        return calls.open(QIODevice::ReadOnly) ? calls.readAll().count("install_driver") : 0;
    };
    ScriptedUsb usb;
    libusb_device *device = usb.plug("loader", 0x04B4, 0x00F3);
    device->strings = {{2, "WestBridge"}};
    QSemaphore scanMayBegin;
    usb.onCall([&](const QString &call) {
        if (call == QLatin1String("get_device_list")) {
            scanMayBegin.tryAcquire(1, s_patience);
            scanMayBegin.release();
        } else if (call == QLatin1String("open loader")) {
            beside = QCoreApplication::applicationDirPath();
            device->openResult = installations() > 0 ? 0 : LIBUSB_ERROR_NOT_FOUND;
        }
    });
    const int result = run([&] {
        QSignalSpy scanned(dialog->findChild<DeviceScanner *>(), &DeviceScanner::complete);
        scanMayBegin.release();
        QTRY_COMPARE_WITH_TIMEOUT(scanned.count(), 1, s_patience);
        QVERIFY(boxes->shown.empty());
        if (QFile::exists(beside + QStringLiteral("/libwdi.dll"))) {
            QCOMPARE(rows(), QStringList{"WestBridge (FFFFFFFF, ) [04b4:00f3] (Hard Repair Mode)"});
            QCOMPARE(installations(), 1);
        } else {
            QCOMPARE(rows(), QStringList());
        }
        ended = true;
    });
    QVERIFY(ended);
    QCOMPARE(result, 0);
}

// The program makes its own application object.
QTEST_APPLESS_MAIN(TestProgram)
#include "tst_program.moc"

#include "products.h"
#include "recordedtree.h"
#include "scriptedlibusb.h"
#include "sysfstree.h"
#include "usbview.h"

#include <QDir>
#include <QFile>
#include <QtTest>

#include <functional>

#include <cerrno>
#include <cstdarg>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using usbview::Obstacle;
using usbview::recognisedDevices;
using usbview::SystemDevice;

namespace {

// Something that happens just before the n-th look at the system (1: the first), and how many looks
// there were.
struct Strike
{
    int before = 0;
    std::function<void()> happens;
    int looks = 0;
};
constexpr int s_looks =
    9; // at a device: address, ids, bus, speed, node, two drivers, address again
Strike *s_strike = nullptr;

// As a security module does it.
bool s_accessIsForbidden = false;
// The folder of devices lists one name again and again.
bool s_endlessFolder = false;
int s_namesRead = 0;

void aboutToLook()
{
    if (s_strike && ++s_strike->looks == s_strike->before) {
        Strike *strike = std::exchange(s_strike, nullptr); // what happens may look as well
        strike->happens();
        s_strike = strike;
    }
}

} // namespace

// The module's looks at the system pass through here (the linker's --wrap).
extern "C" {
int __real_open(const char *path, int flags, ...);
int __wrap_open(const char *path, int flags, ...);
int __real_access(const char *path, int mode);
int __wrap_access(const char *path, int mode);
ssize_t __real_readlink(const char *path, char *target, size_t size);
ssize_t __wrap_readlink(const char *path, char *target, size_t size);
dirent *__real_readdir(DIR *folder);
dirent *__wrap_readdir(DIR *folder);

int __wrap_open(const char *path, int flags, ...)
{
    aboutToLook();
    if ((flags & O_CREAT) == 0) {
        return __real_open(path, flags);
    }
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return __real_open(path, flags, mode);
}

int __wrap_access(const char *path, int mode)
{
    aboutToLook();
    if (s_accessIsForbidden) {
        errno = EPERM;
        return -1;
    }
    return __real_access(path, mode);
}

ssize_t __wrap_readlink(const char *path, char *target, size_t size)
{
    aboutToLook();
    return __real_readlink(path, target, size);
}

dirent *__wrap_readdir(DIR *folder)
{
    if (!s_endlessFolder) {
        return __real_readdir(folder);
    }
    static dirent s_entry = {};
    qstrcpy(s_entry.d_name, "1-1");
    ++s_namesRead;
    return &s_entry;
}
}

namespace {

constexpr uid_t s_nobody = 65534;
const QString s_recording = QStringLiteral(CAPSO_RECORDED "/linux-6.1.sysfs");

// root may read everything; while this lives, the process is an ordinary user.
class OrdinaryUser
{
public:
    OrdinaryUser() : wasRoot(getuid() == 0)
    {
        if (wasRoot && setresuid(s_nobody, s_nobody, 0) != 0) {
            qFatal("cannot become an ordinary user");
        }
    }
    OrdinaryUser(const OrdinaryUser &) = delete;
    OrdinaryUser &operator=(const OrdinaryUser &) = delete;
    ~OrdinaryUser()
    {
        if (wasRoot && setresuid(0, 0, 0) != 0) {
            qFatal("cannot become root again");
        }
    }

private:
    bool wasRoot;
};

void setMode(const QString &path, mode_t mode)
{
    QCOMPARE(chmod(QFile::encodeName(path).constData(), mode), 0);
}

// The bus and address of each device that is shown, e.g. "2:7 2:9".
QString shown(const SysfsTree &tree)
{
    const auto devices = recognisedDevices(tree.places());
    if (!devices) {
        return QStringLiteral("no view");
    }
    QStringList all;
    for (const SystemDevice &device : *devices) {
        all << QStringLiteral("%1:%2").arg(device.busNumber).arg(device.deviceAddress);
    }
    return all.join(QLatin1Char(' '));
}

// The only device that is shown.
SystemDevice only(const SysfsTree &tree)
{
    const auto devices = recognisedDevices(tree.places());
    if (!devices || devices->size() != 1) {
        qFatal("not one device is shown");
    }
    return devices->front();
}

int openFiles()
{
    return int(
        QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::AllEntries | QDir::System).size());
}

void replaceByPipe(const QString &path)
{
    QFile::remove(path);
    QCOMPARE(mkfifo(QFile::encodeName(path).constData(), 0666), 0);
}

} // namespace

// What the system shows of its USB devices, read from made trees of sysfs, and from what a kernel
// has shown.
class TestUsbView : public QObject
{
    Q_OBJECT

private slots:
    void recordedTreeIsReadAsTheKernelWroteIt();
    void nodesAsTheKernelMakesThemAreDenied();
    void deviceIsShownWithAllThatTheSystemSays();
    void everyRecognisedIdIsShown();
    void everyRecognisedIdIsShown_data();
    void strangersAreNotShown();
    void speedIsThatOfTheLink();
    void speedIsThatOfTheLink_data();
    void rightsAreThoseOfThisUser();
    void rightsAreThoseOfThisUser_data();
    void nodeThatASecurityModuleForbidsIsDenied();
    void deviceWithoutANodeIsNotCalledDenied();
    void programsHoldInterfaceZeroAndDriversDoNot();
    void programsHoldInterfaceZeroAndDriversDoNot_data();
    void interfacesOfOtherPortsDoNotCount();
    void driverThatHasTheWholeDeviceHoldsIt();
    void firstObstacleIsTheFirstThatAProgramMeets();
    void equalPortsOnSeveralBusesAreDifferentDevices();
    void deviceIsFoundByBusAndAddress();
    void systemWithoutUsbHasNoView();
    void unreadableFolderIsNoView();
    void folderWithoutAnEndIsReadUpToABound();
    void unreadableDeviceHidesNoOther();
    void deviceThatGoesWhileItIsReadIsLeftOut();
    void deviceThatComesBackWhileItIsReadIsNotMixedUp();
    void attributesWithoutAnEndAreNoTrouble();
    void attributesWithoutAnEndAreNoTrouble_data();
    void nonsenseInAttributesIsNoDevice();
    void nonsenseInAttributesIsNoDevice_data();
    void libusbIsNotAsked();
    void nothingStaysOpen();
};

void TestUsbView::recordedTreeIsReadAsTheKernelWroteIt()
{
    const RecordedTree tree(s_recording);
    QCOMPARE(tree.folders(), 27);
    const auto devices = recognisedDevices(tree.places());
    QVERIFY(devices);
    QStringList lines;
    for (const SystemDevice &device : *devices) {
        lines << QStringLiteral("%1:%2 %3 %4 %5 %6%7")
                     .arg(device.busNumber)
                     .arg(device.deviceAddress)
                     .arg(device.id.productId, 4, 16)
                     .arg(device.portPath)
                     .arg(device.speed)
                     .arg(device.held ? "held " : "", device.driver);
        QCOMPARE(device.id.vendorId, quint16(0xE5C1));
        QVERIFY(device.hasNode);
    }
    QCOMPARE(lines, QStringList({"3:2 3600 3-1 480 ", "4:2 3601 4-9 5000 cypress_cy7c63",
                                 "4:3 3621 4-10 5000 held usbfs",
                                 "4:4 3631 4-11 5000 held usbip-host", "4:5 363f 4-12 5000 "}));
}

void TestUsbView::nodesAsTheKernelMakesThemAreDenied()
{
    const RecordedTree tree(s_recording);
    const QString usable = tree.node("bus/usb/004/005");
    setMode(usable, 0666); // what the package's rules do
    if (getuid() != 0) {   // the nodes are this user's own, who may do everything
        for (const char *node : {"003/002", "004/002", "004/003", "004/004"}) {
            setMode(tree.node(QStringLiteral("bus/usb/") + node), 0);
        }
    }
    const OrdinaryUser user;
    const auto devices = *recognisedDevices(tree.places());
    QList<int> addresses;
    for (const SystemDevice &device : devices) {
        const bool isUsable = device.busNumber == 4 && device.deviceAddress == 5;
        QCOMPARE(device.obstacle(), isUsable ? Obstacle::None : Obstacle::Denied);
        addresses << device.deviceAddress;
    }
    QCOMPARE(addresses, QList<int>({2, 2, 3, 4, 5}));
}

void TestUsbView::deviceIsShownWithAllThatTheSystemSays()
{
    SysfsTree tree;
    tree.addRootHub(2);
    tree.add({"2-1", "05e3", "0626", 2, "5000"}); // a hub
    tree.add({"2-1.4", "e5c1", "3631", 113, "10000"});
    const SystemDevice device = only(tree);
    QCOMPARE(device.id.vendorId, quint16(0xE5C1));
    QCOMPARE(device.id.productId, quint16(0x3631));
    QCOMPARE(device.busNumber, quint8(2));
    QCOMPARE(device.deviceAddress, quint16(113));
    QCOMPARE(device.portPath, QStringLiteral("2-1.4"));
    QCOMPARE(device.speed, 10000);
    QVERIFY(device.hasNode);
    QVERIFY(device.mayOpen);
    QVERIFY(!device.held);
    QCOMPARE(device.driver, QString());
    QCOMPARE(device.obstacle(), Obstacle::None);
}

void TestUsbView::everyRecognisedIdIsShown()
{
    QFETCH(QByteArray, vendor);
    QFETCH(QByteArray, product);
    SysfsTree tree;
    tree.add({"1-1", vendor, product});
    QCOMPARE(shown(tree), QStringLiteral("1:7"));
}

void TestUsbView::everyRecognisedIdIsShown_data()
{
    QTest::addColumn<QByteArray>("vendor");
    QTest::addColumn<QByteArray>("product");
    for (const Identity &one : allIdentities()) {
        const QByteArray vendor = QByteArray::number(one.vendorId, 16).rightJustified(4, '0');
        const QByteArray product = QByteArray::number(one.productId, 16).rightJustified(4, '0');
        QTest::newRow(vendor + ':' + product) << vendor << product;
    }
}

void TestUsbView::strangersAreNotShown()
{
    SysfsTree tree;
    tree.addRootHub(1);
    tree.add({"1-1", "e5c1", "3602"});
    tree.add({"1-2", "3601", "e5c1"});
    tree.add({"1-3", "5555", "3600"});
    tree.add({"1-4", "046d", "c077"});
    QCOMPARE(shown(tree), QString());
}

void TestUsbView::speedIsThatOfTheLink()
{
    QFETCH(QByteArray, text);
    QFETCH(int, speed);
    SysfsTree tree;
    tree.add({"1-1", "e5c1", "3601", 7, text});
    QCOMPARE(only(tree).speed, speed);
}

void TestUsbView::speedIsThatOfTheLink_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("speed");
    for (const int speed : {12, 480, 5000, 10000, 20000, 80000}) {
        QTest::addRow("%d", speed) << QByteArray::number(speed) << speed;
    }
    QTest::newRow("a word") << QByteArray("unknown") << 0;
    QTest::newRow("nothing") << QByteArray() << 0;
    QTest::newRow("below nothing") << QByteArray("-480") << 0;
    QTest::newRow("too much") << QByteArray("99999999999") << 0;
}

void TestUsbView::rightsAreThoseOfThisUser()
{
    QFETCH(int, mode);
    QFETCH(bool, mayOpen);
    SysfsTree tree;
    tree.add({"3-2"});
    setMode(tree.nodeOf(3, 7), mode_t(mode));
    const OrdinaryUser user;
    const SystemDevice device = only(tree);
    QVERIFY(device.hasNode);
    QCOMPARE(device.mayOpen, mayOpen);
    QCOMPARE(device.obstacle(), mayOpen ? Obstacle::None : Obstacle::Denied);
}

void TestUsbView::rightsAreThoseOfThisUser_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("mayOpen");
    QTest::newRow("all") << 0666 << true;
    QTest::newRow("none") << 0000 << false;
    // libusb opens for reading and writing; without rules the kernel's node is rw-rw-r--.
    QTest::newRow("reading") << 0444 << false;
    QTest::newRow("writing") << 0222 << false;
}

void TestUsbView::nodeThatASecurityModuleForbidsIsDenied()
{
    SysfsTree tree;
    tree.add({"3-2"});
    s_accessIsForbidden = true;
    const SystemDevice device = only(tree);
    s_accessIsForbidden = false;
    QVERIFY(device.hasNode);
    QCOMPARE(device.obstacle(), Obstacle::Denied);
}

void TestUsbView::deviceWithoutANodeIsNotCalledDenied()
{
    SysfsTree tree;
    tree.add({"3-2"});
    QVERIFY(QFile::remove(tree.nodeOf(3, 7)));
    const SystemDevice device = only(tree);
    QVERIFY(!device.hasNode);
    QVERIFY(!device.mayOpen);
    QCOMPARE(device.obstacle(), Obstacle::NoNode);
}

void TestUsbView::programsHoldInterfaceZeroAndDriversDoNot()
{
    QFETCH(QByteArray, interface);
    QFETCH(QByteArray, driver);
    QFETCH(bool, held);
    QFETCH(QString, shownDriver);
    SysfsTree tree;
    tree.add({"2-1.4"});
    tree.add({"2-1", "05e3", "0626", 2});
    tree.addInterface("2-1.4", interface);
    tree.bind(interface, driver);
    QCOMPARE(only(tree).held, held);
    QCOMPARE(only(tree).driver, shownDriver);
    QCOMPARE(only(tree).obstacle(), held ? Obstacle::Held : Obstacle::None);
}

void TestUsbView::programsHoldInterfaceZeroAndDriversDoNot_data()
{
    QTest::addColumn<QByteArray>("interface");
    QTest::addColumn<QByteArray>("driver");
    QTest::addColumn<bool>("held");
    QTest::addColumn<QString>("shownDriver");
    const auto row = [](const char *name, const char *interface, const char *driver, bool held,
                        const char *shownDriver) {
        QTest::newRow(name) << QByteArray(interface) << QByteArray(driver) << held
                            << QString::fromLatin1(shownDriver);
    };
    row("a program", "2-1.4:1.0", "usbfs", true, "usbfs");
    row("a driver", "2-1.4:1.0", "uvcvideo", false, "uvcvideo");
    row("a program, interface 1", "2-1.4:1.1", "usbfs", false, "");
    row("a program, interface 10", "2-1.4:1.10", "usbfs", false, "");
}

// Names that begin alike: a device without an interface, one below it, one on port 10.
void TestUsbView::interfacesOfOtherPortsDoNotCount()
{
    SysfsTree tree;
    tree.add({"2-1", "e5c1", "3601", 3});
    QVERIFY(QFile::remove(tree.linkFolder() + QStringLiteral("/2-1:1.0")));
    tree.add({"2-1.4", "e5c1", "3601", 4});
    tree.add({"2-10", "e5c1", "3601", 5});
    tree.bind("2-1.4:1.0", "usbfs");
    tree.bind("2-10:1.0", "usbfs");
    const auto devices = *recognisedDevices(tree.places());
    QCOMPARE(devices.size(), size_t(3));
    QVERIFY(!devices[0].held);
    QVERIFY(devices[1].held);
    QVERIFY(devices[2].held);
}

void TestUsbView::driverThatHasTheWholeDeviceHoldsIt()
{
    SysfsTree tree;
    tree.add({"2-1.4"});
    tree.bind("2-1.4", "usbip-host");
    QVERIFY(only(tree).held);
    QCOMPARE(only(tree).driver, QStringLiteral("usbip-host"));
    QCOMPARE(only(tree).obstacle(), Obstacle::Held);
}

void TestUsbView::firstObstacleIsTheFirstThatAProgramMeets()
{
    SystemDevice device;
    device.held = true;
    QCOMPARE(device.obstacle(), Obstacle::NoNode);
    device.hasNode = true;
    QCOMPARE(device.obstacle(), Obstacle::Denied);
    device.mayOpen = true;
    QCOMPARE(device.obstacle(), Obstacle::Held);
    device.held = false;
    QCOMPARE(device.obstacle(), Obstacle::None);
}

void TestUsbView::equalPortsOnSeveralBusesAreDifferentDevices()
{
    SysfsTree tree;
    tree.add({"12-1", "e5c1", "3601", 3, "10000"});
    tree.add({"2-1", "e5c1", "3601", 9, "480"});
    tree.add({"2-2", "e5c1", "3621", 4, "5000"});
    tree.add({"1-1", "e5c1", "3601", 3, "12"});
    tree.bind("12-1:1.0", "usbfs");
    QCOMPARE(shown(tree), QStringLiteral("1:3 2:4 2:9 12:3"));
    const auto devices = *recognisedDevices(tree.places());
    QCOMPARE(devices[0].speed, 12);
    QCOMPARE(devices[2].portPath, QStringLiteral("2-1"));
    QVERIFY(!devices[2].held);
    QCOMPARE(devices[3].portPath, QStringLiteral("12-1"));
    QVERIFY(devices[3].held);
}

void TestUsbView::deviceIsFoundByBusAndAddress()
{
    SysfsTree tree;
    tree.add({"1-1", "e5c1", "3601", 3});
    tree.add({"2-2", "e5c1", "3601", 3});
    const auto devices = *recognisedDevices(tree.places());
    const SystemDevice *device = usbview::find(devices, 2, 3);
    QVERIFY(device);
    QCOMPARE(device->portPath, QStringLiteral("2-2"));
    QVERIFY(!usbview::find(devices, 2, 4));
    QVERIFY(!usbview::find(devices, 3, 3));
}

void TestUsbView::systemWithoutUsbHasNoView()
{
    SysfsTree tree;
    QCOMPARE(shown(tree), QString());
    QVERIFY(QDir(tree.linkFolder()).removeRecursively());
    QCOMPARE(shown(tree), QStringLiteral("no view"));
}

void TestUsbView::unreadableFolderIsNoView()
{
    SysfsTree tree;
    tree.add({"1-1"});
    setMode(tree.linkFolder(), 0);
    {
        const OrdinaryUser user;
        QCOMPARE(shown(tree), QStringLiteral("no view"));
    }
    setMode(tree.linkFolder(), 0755);
}

void TestUsbView::folderWithoutAnEndIsReadUpToABound()
{
    const SysfsTree tree; // whose folder has no such name in truth
    s_endlessFolder = true;
    s_namesRead = 0;
    const auto devices = recognisedDevices(tree.places());
    s_endlessFolder = false;
    QVERIFY(devices && devices->empty());
    QCOMPARE(s_namesRead, 65536);
}

void TestUsbView::unreadableDeviceHidesNoOther()
{
    SysfsTree tree;
    tree.add({"1-1", "e5c1", "3601", 3});
    tree.add({"1-2", "e5c1", "3601", 4});
    tree.add({"1-3", "e5c1", "3601", 5});
    setMode(tree.folderOf("1-2"), 0);
    {
        const OrdinaryUser user;
        QCOMPARE(shown(tree), QStringLiteral("1:3 1:5"));
    }
    setMode(tree.folderOf("1-2"), 0755);
}

// Before each look in turn: whatever has been read by then, a device that is gone is not shown.
void TestUsbView::deviceThatGoesWhileItIsReadIsLeftOut()
{
    for (int before = 1; before <= s_looks; ++before) {
        SysfsTree tree;
        tree.add({"2-1.4"});
        Strike strike{before, [&tree] { tree.remove("2-1.4"); }};
        s_strike = &strike;
        const QString result = shown(tree);
        s_strike = nullptr;
        QVERIFY2(result.isEmpty(), qPrintable(QStringLiteral("look %1").arg(before)));
        tree.add({"2-1.4"});
        QCOMPARE(shown(tree), QStringLiteral("2:7"));
    }
    SysfsTree tree;
    tree.add({"2-1.4"});
    Strike strike{s_looks + 1, [&tree] { tree.remove("2-1.4"); }};
    s_strike = &strike;
    QCOMPARE(shown(tree), QStringLiteral("2:7"));
    s_strike = nullptr;
    QCOMPARE(strike.looks, s_looks);
}

// It is unplugged and plugged in again, with other ids, another holder and another address. Half of
// the old ids with half of the new ones would be a device that is recognised.
void TestUsbView::deviceThatComesBackWhileItIsReadIsNotMixedUp()
{
    int whole = 0;
    for (int before = 1; before <= s_looks; ++before) {
        SysfsTree tree;
        tree.add({"2-1.4", "e5c1", "360f", 7, "5000"});
        Strike strike{before, [&tree] {
                          tree.remove("2-1.4");
                          tree.add({"2-1.4", "5555", "3601", 8, "480"});
                          tree.bind("2-1.4:1.0", "usbfs");
                      }};
        s_strike = &strike;
        const auto devices = *recognisedDevices(tree.places());
        s_strike = nullptr;
        QVERIFY(devices.size() <= 1);
        if (!devices.empty()) {
            ++whole;
            QCOMPARE(devices[0].id.vendorId, quint16(0x5555));
            QCOMPARE(devices[0].id.productId, quint16(0x3601));
            QCOMPARE(devices[0].deviceAddress, quint16(8));
            QCOMPARE(devices[0].speed, 480);
            QVERIFY(devices[0].held);
        }
    }
    QVERIFY(whole >= 1); // before the first look: it is as if it had always been there
}

void TestUsbView::attributesWithoutAnEndAreNoTrouble()
{
    QFETCH(QByteArray, name);
    SysfsTree tree;
    tree.add({"1-1", "e5c1", "3601", 3});
    tree.add({"1-2", "e5c1", "3601", 4});
    const QString path = tree.attribute("1-2", name);
    const QString expected = name == "speed" ? QStringLiteral("1:3 1:4") : QStringLiteral("1:3");

    QVERIFY(QFile::remove(path));
    QVERIFY(QFile::link(QStringLiteral("/dev/zero"), path));
    QCOMPARE(shown(tree), expected);

    replaceByPipe(path); // nobody writes
    QCOMPARE(shown(tree), expected);
    const int writer = __real_open(QFile::encodeName(path).constData(), O_RDWR | O_NONBLOCK);
    QCOMPARE(shown(tree), expected); // somebody may write
    const QByteArray digits(4096, '3');
    QCOMPARE(write(writer, digits.constData(), size_t(digits.size())), ssize_t(digits.size()));
    QCOMPARE(shown(tree), expected);
    close(writer);

    QVERIFY(QFile::remove(path));
    QVERIFY(QDir().mkdir(path));
    QCOMPARE(shown(tree), expected);

    QVERIFY(QDir().rmdir(path));
    QVERIFY(QFile::link(path, path)); // a link to itself
    QCOMPARE(shown(tree), expected);
}

void TestUsbView::attributesWithoutAnEndAreNoTrouble_data()
{
    QTest::addColumn<QByteArray>("name");
    for (const char *name : {"idVendor", "idProduct", "busnum", "devnum", "speed"}) {
        QTest::newRow(name) << QByteArray(name);
    }
}

void TestUsbView::nonsenseInAttributesIsNoDevice()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, text);
    SysfsTree tree;
    tree.add({"1-1", "e5c1", "3601", 3});
    tree.write("1-1", name, text);
    QCOMPARE(shown(tree), QString());
}

void TestUsbView::nonsenseInAttributesIsNoDevice_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("no ids") << QByteArray("idVendor") << QByteArray();
    QTest::newRow("a line end") << QByteArray("idProduct") << QByteArray("\n");
    QTest::newRow("more than 16 bits") << QByteArray("idProduct") << QByteArray("13601\n");
    QTest::newRow("longer than any") << QByteArray("idProduct") << "3601" + QByteArray(60, ' ');
    QTest::newRow("bus 0") << QByteArray("busnum") << QByteArray("0\n");
    QTest::newRow("a bus beyond a byte") << QByteArray("busnum") << QByteArray("257\n");
    QTest::newRow("address 0") << QByteArray("devnum") << QByteArray("0\n");
    QTest::newRow("an address below 0") << QByteArray("devnum") << QByteArray("-3\n");
    QTest::newRow("digits without an end") << QByteArray("devnum") << QByteArray(4096, '0') + "3\n";
}

void TestUsbView::nothingStaysOpen()
{
    SysfsTree tree;
    tree.add({"1-1", "e5c1", "3601", 3});
    tree.add({"1-2", "e5c1", "3601", 4});
    QVERIFY(QFile::remove(tree.attribute("1-2", "devnum")));
    tree.write("1-2", "speed", QByteArray(4096, '1'));
    const int before = openFiles();
    QVERIFY(before > 0);
    QCOMPARE(shown(tree), QStringLiteral("1:3"));
    QCOMPARE(openFiles(), before);
}

void TestUsbView::libusbIsNotAsked()
{
    ScriptedUsb bus;
    bus.plug("a", 0xE5C1, 0x3601);
    SysfsTree tree;
    tree.add({"1-1"});
    QCOMPARE(shown(tree), QStringLiteral("1:7"));
    QCOMPARE(bus.calls(), QStringList());
}

QTEST_GUILESS_MAIN(TestUsbView)

#include "tst_usbview.moc"

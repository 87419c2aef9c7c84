// What the empty device list tells its user: when, in which words, and that it changes nothing
// else.

#include "dialogdriver.h"
#include "emptylisthint.h"
#include "emptylisttexts.h"

#include <QAccessible>
#include <QImage>
#include <QListWidget>
#include <QTest>

using usbview::SystemDevice;

namespace {

using View = std::optional<std::vector<SystemDevice>>;

View s_view = View::value_type(); // what the system says
int s_asked = 0;                  // how often it was asked

SystemDevice silentDevice()
{
    SystemDevice device;
    device.hasNode = true;
    device.mayOpen = true;
    return device;
}

SystemDevice deniedDevice()
{
    SystemDevice device = silentDevice();
    device.mayOpen = false;
    return device;
}

SystemDevice heldDevice()
{
    SystemDevice device = silentDevice();
    device.held = true;
    return device;
}

SystemDevice deviceWithoutANode()
{
    return {};
}

QImage imageOf(QWidget *widget)
{
    return widget->grab().toImage();
}

// Whether anything is painted in the list.
bool isBlank(QListWidget *list)
{
    const QImage image = imageOf(list->viewport());
    QImage blank(image.size(), image.format());
    blank.fill(image.pixel(0, 0));
    return image == blank;
}

} // namespace

// Takes the real one's place at the link.
std::optional<std::vector<SystemDevice>> usbview::recognisedDevices(const Places & /*places*/)
{
    ++s_asked;
    return s_view;
}

class TestEmptyList : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { prepareWithoutUsb(); }
    void init();
    void textSaysWhy_data();
    void textSaysWhy();
    void hintIsThereAfterAScanThatFoundNothing();
    void hintIsReadOutInPlaceOfTheDescription();
    void hintIsGoneWhileAScanRuns();
    void hintWaitsForTheLastScan();
    void listWithRowsHasNoHint();
    void hintGoesWithTheFirstRow();
    void hintTellsWhatTheSystemSaysNow();
    void hintIsNoRowAndNoWidget();
    void hintHasTheListsColour();
    void hintThatDoesNotFitBeginsAtTheTop();
    void hintIsNotShownOverRows();
};

void TestEmptyList::init()
{
    s_view = View::value_type();
    s_asked = 0;
}

void TestEmptyList::textSaysWhy_data()
{
    QTest::addColumn<bool>("hasView");
    QTest::addColumn<QList<int>>("devices"); // 0: silent, 1: denied, 2: held, 3: no node
    QTest::addColumn<QString>("text");
    QTest::newRow("no view") << false << QList<int>{} << s_notFound;
    QTest::newRow("nothing") << true << QList<int>{} << s_notFound;
    QTest::newRow("silent") << true << QList<int>{0} << s_silent;
    QTest::newRow("denied") << true << QList<int>{1} << s_denied;
    QTest::newRow("held") << true << QList<int>{2} << s_held;
    QTest::newRow("no node") << true << QList<int>{3} << s_silent;
    // What the user can do most about.
    QTest::newRow("silent, held, denied") << true << QList<int>{0, 2, 1} << s_denied;
    QTest::newRow("no node, silent, held") << true << QList<int>{3, 0, 2} << s_held;
}

void TestEmptyList::textSaysWhy()
{
    QFETCH(bool, hasView);
    QFETCH(QList<int>, devices);
    QFETCH(QString, text);
    const std::vector<SystemDevice> kinds = {silentDevice(), deniedDevice(), heldDevice(),
                                             deviceWithoutANode()};
    View view;
    if (hasView) {
        view.emplace();
        for (const int kind : devices) {
            view->push_back(kinds.at(size_t(kind)));
        }
    }
    QCOMPARE(emptyListText(view), text);
}

void TestEmptyList::hintIsThereAfterAScanThatFoundNothing()
{
    DialogDriver driver;
    QVERIFY(!isBlank(driver.list()));
    driver.listDevices({});
    QVERIFY(!isBlank(driver.list()));
}

void TestEmptyList::hintIsReadOutInPlaceOfTheDescription()
{
    DialogDriver driver;
    driver.listDevices({"Grabber"});
    const QString usual = driver.list()->accessibleDescription();
    driver.listDevices({});
    QCOMPARE(driver.list()->accessibleDescription(), QString(s_notFound));
    QCOMPARE(QAccessible::queryAccessibleInterface(driver.list())->text(QAccessible::Description),
             QString(s_notFound)); // as a screen reader asks
    driver.listDevices({});
    QCOMPARE(driver.list()->accessibleDescription(), QString(s_notFound));
    driver.listDevices({"Grabber"});
    QCOMPARE(driver.list()->accessibleDescription(), usual);
}

void TestEmptyList::hintIsGoneWhileAScanRuns()
{
    DialogDriver driver;
    driver.click("rescanDevicesButton");
    QVERIFY(isBlank(driver.list()));
    QVERIFY(driver.list()->accessibleDescription() != s_notFound);
    emit driver.scanner->complete();
    QVERIFY(!isBlank(driver.list()));
}

void TestEmptyList::hintWaitsForTheLastScan()
{
    DialogDriver driver;
    driver.click("rescanDevicesButton");
    driver.click("rescanDevicesButton");
    emit driver.scanner->complete();
    QVERIFY(isBlank(driver.list()));
    emit driver.scanner->complete();
    QVERIFY(!isBlank(driver.list()));
}

void TestEmptyList::listWithRowsHasNoHint()
{
    DialogDriver driver;
    QCOMPARE(s_asked, 1);
    driver.listDevices({"Grabber"});
    QVERIFY(driver.list()->accessibleDescription() != s_notFound);
    QCOMPARE(s_asked, 1); // nobody needs to know
}

void TestEmptyList::hintGoesWithTheFirstRow()
{
    DialogDriver driver;
    emit driver.scanner->newDevice(describedDevice("Grabber"));
    QVERIFY(driver.list()->accessibleDescription() != s_notFound);
    const QImage afterHint = imageOf(driver.list()->viewport());
    driver.listDevices({"Grabber"});
    QCOMPARE(afterHint, imageOf(driver.list()->viewport()));
}

void TestEmptyList::hintTellsWhatTheSystemSaysNow()
{
    DialogDriver driver;
    const QImage notFound = imageOf(driver.list()->viewport());
    s_view = {deniedDevice()};
    driver.listDevices({});
    QCOMPARE(driver.list()->accessibleDescription(), QString(s_denied));
    QVERIFY(imageOf(driver.list()->viewport()) != notFound);
    s_view = {heldDevice()};
    driver.listDevices({});
    QCOMPARE(driver.list()->accessibleDescription(), QString(s_held));
    s_view.reset();
    driver.listDevices({});
    QCOMPARE(driver.list()->accessibleDescription(), QString(s_notFound));
    QCOMPARE(imageOf(driver.list()->viewport()), notFound);
}

void TestEmptyList::hintIsNoRowAndNoWidget()
{
    const auto focusChain = [](const QWidget *from) {
        QStringList names;
        const QWidget *next = from;
        do {
            names += next->objectName();
            next = next->nextInFocusChain();
        } while (next != from);
        return names;
    };
    DialogDriver driver;
    QVERIFY(!isBlank(driver.list()));
    const auto widgets = driver.dialog.findChildren<QWidget *>();
    const QStringList order = focusChain(&driver.dialog);
    QCOMPARE(driver.list()->count(), 0);
    QCOMPARE(driver.list()->currentRow(), -1);
    driver.click("rescanDevicesButton"); // without the hint
    QVERIFY(isBlank(driver.list()));
    QCOMPARE(driver.dialog.findChildren<QWidget *>(), widgets);
    QCOMPARE(focusChain(&driver.dialog), order);
}

void TestEmptyList::hintHasTheListsColour()
{
    QListWidget list;
    list.resize(400, 200);
    QPalette palette = list.palette();
    palette.setColor(QPalette::Base, Qt::black);
    palette.setColor(QPalette::Text, Qt::green);
    list.setPalette(palette);
    EmptyListHint hint(&list);
    hint.show(QStringLiteral("MMMM"));
    const QImage image = imageOf(list.viewport());
    bool green = false;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor colour = image.pixelColor(x, y);
            QVERIFY(colour.red() == 0 && colour.blue() == 0);
            green = green || colour.green() > 200;
        }
    }
    QVERIFY(green);
}

// Three lines where only one has room: it is the first.
void TestEmptyList::hintThatDoesNotFitBeginsAtTheTop()
{
    QListWidget list;
    list.setFrameShape(QFrame::NoFrame);
    const int line = list.fontMetrics().height();
    list.resize(20 * line, 3 * line);
    EmptyListHint hint(&list);
    hint.show(QStringLiteral("first"));
    const QImage first = imageOf(list.viewport());
    hint.show(QStringLiteral("first\nsecond\nthird"));
    const QImage all = imageOf(list.viewport());
    QVERIFY(!isBlank(&list));
    const QRect top(0, 0, first.width(), 2 * line);
    QCOMPARE(all.copy(top), first.copy(top));
}

void TestEmptyList::hintIsNotShownOverRows()
{
    QListWidget list;
    list.setAccessibleDescription(QStringLiteral("usual"));
    list.addItem(QStringLiteral("row"));
    const QImage without = imageOf(list.viewport());
    EmptyListHint hint(&list);
    hint.show(QStringLiteral("hint"));
    QCOMPARE(imageOf(list.viewport()), without);
    QCOMPARE(list.accessibleDescription(), QStringLiteral("usual"));
    list.clear();
    hint.show(QStringLiteral("hint"));
    QCOMPARE(list.accessibleDescription(), QStringLiteral("hint"));
    list.addItem(QStringLiteral("row"));
    QCOMPARE(list.accessibleDescription(), QStringLiteral("usual"));
    QCOMPARE(imageOf(list.viewport()), without);
}

QTEST_MAIN(TestEmptyList)
#include "tst_emptylist.moc"

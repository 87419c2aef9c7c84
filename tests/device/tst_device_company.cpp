#include "devicetest.h"

#include <QRegularExpression>
#include <QTest>

// What else is plugged in, and where and how: no operation minds it. And what becomes of a repair
// when the device comes back otherwise than its computer expects.
class TestCompany : public DeviceTest
{
    Q_OBJECT

private slots:
    void everyOperationIsTheSameInEverySurrounding();
    void driversOfOtherInterfacesAreLeftAlone();
    void sandboxAtAnotherSpeedOfTheSameBusIsFound();
    void sandboxThatComesBackTwiceIsFound();
    void sandboxOnAnotherBusIsNotFoundAndTakesASecondPress();
    void sandboxOfAnotherProductIsNotFoundUntilPowerIsCycled();
    void everySandboxThatComesBackOtherwise();
    void sandboxesAtEqualPortsOfTwoHubs();
    void requestsToOneOfTwoSandboxesAtEqualPorts();
    void deviceAtTheSamePortNumberThatCameLastIsTaken();
};

namespace {

// A velk3 "g" in this mode and this surrounding.
struct Surrounding
{
    const char *title;
    const char *words;   // about it
    const char *company; // other devices
    bool driver = false; // one is bound to interface 0
};

const Surrounding s_surroundings[] = {
    {"alone", "", ""},
    {"full speed", "speed 12", ""},
    {"high speed", "speed 480", ""},
    {"super speed plus", "speed 10000", ""},
    {"another bus", "bus 3\nport 7\naddress 99", ""},
    {"behind two hubs", "behind-hub 2.1\nport 4", ""},
    {"a composite device", "interfaces 3", ""},
    {"a driver at interface 1", "interfaces 2\nkernel-driver snd-usb-audio interface 1", ""},
    {"a driver at each interface",
     "interfaces 2\nkernel-driver uvcvideo\nkernel-driver snd-usb-audio interface 1", "", true},
    {"strangers", "port 2",
     "device keyboard\nproduct other\nid 046d:c31c\nkernel-driver usbhid\n"
     "device camera\nproduct other\nid 046d:0825\ninterfaces 2\nkernel-driver uvcvideo\n"
     "kernel-driver snd-usb-audio interface 1\naccess denied\n"
     "device disk\nproduct other\nid 0781:5583\nbus 2\nport 2\nkernel-driver usb-storage\n"},
    {"equal ports elsewhere", "port 4",
     "device b\nproduct velk3\nserial \"S2\"\nbus 2\nport 4\n"
     "device c\nproduct sorn3\nserial \"S3\"\nbehind-hub 1\nport 4\n"},
};

QByteArray sceneIn(const Surrounding &surrounding, const QByteArray &words)
{
    return sceneOf(velk3, words + '\n' + surrounding.words) + surrounding.company;
}

// What the device "g" sees of these operations.
struct Work
{
    const char *title;
    QByteArray words;
    QStringList operations; // "PACKAGE" stands for one
    QStringList wire;
    int plugs = 1; // after which it was worked with, and a driver had to be detached
};

// 29 bytes: two texts; then the rate, the size, and whether it is interlaced.
QByteArray statusRecord(const char *numbers)
{
    return QByteArray("RGB").leftJustified(12, '\0') + QByteArray("HDMI").leftJustified(8, '\0') +
           QByteArray::fromHex(numbers);
}

std::vector<Work> allWork(const Images &images)
{
    const QStringList probe = WireModel().probe().lines();
    const auto one = [](const Request &request, const QByteArray &data) {
        return WireModel().openForWork().request(request, data).giveBack().lines();
    };
    const QByteArray mode = QByteArray::fromHex("0005d00200");
    const QByteArray status = statusRecord("60ea0000"     // 60000 thousandths a second
                                           "8007380400"); // 1920x1080, progressive
    const QStringList repair =
        QStringList{"open", "close"} + WireModel().repair(velk3, images).lines();
    return {
        {"a scan", "mode normal", {"scan"}, probe},
        {"an update",
         "mode normal",
         {"scan", "update", "S1", "PACKAGE"},
         probe + WireModel().openForWork().regularUpdate(velk3, images).giveBack().lines()},
        {"a repair", "mode soft\nreturn after 300", {"scan", "update", "S1", "PACKAGE"}, repair, 2},
        {"a repair of the bare controller",
         "mode hard\nreturn after 300",
         {"scan", "update", "S1", "PACKAGE"},
         repair,
         2},
        {"the input status",
         "input 1920x1080p 60000 \"HDMI\" \"RGB\"",
         {"scan", "get-status", "S1"},
         probe + one({Direction::In, 0xB2, 0, 0, 29}, status)},
        {"settings",
         "flags 5",
         {"scan", "get-flags", "S1", "set-flags", "S1", "12"},
         probe + one({Direction::In, 0xE2, 0, 0, 1}, QByteArray(1, 0x05)) +
             one({Direction::Out, 0xE3, 0, 0, 1}, QByteArray(1, 0x12))},
        {"a user mode",
         "user-mode 1 1280x720 on",
         {"scan", "get-mode", "S1", "1", "set-mode", "S1", "1", "0005d00200"},
         probe + one({Direction::In, 0xB3, 0, 1, 5}, mode) +
             one({Direction::Out, 0xB3, 0, 1, 5}, mode)},
    };
}

const QStringList s_notFound{
    "progress 1", "progress 2", "progress 4", "progress 5", "error Error: Failed to install driver",
    "complete"};

QByteArray soft(const QByteArray &words)
{
    return sceneOf(velk3, "mode soft\n" + words);
}

} // namespace

void TestCompany::everyOperationIsTheSameInEverySurrounding()
{
    const Images images = makeImages(velk3, 4100, 4100);
    const QString package = save("p", velk3, images);
    SimBatch batch;
    for (const Work &work : allWork(images)) {
        for (const Surrounding &surrounding : s_surroundings) {
            QStringList operations = work.operations;
            operations.replaceInStrings("PACKAGE", package);
            const bool writes = work.operations.contains("PACKAGE");
            const QStringList wire = work.wire;
            const int detached = surrounding.driver ? work.plugs : 0;
            batch.add(QString("%1, %2").arg(work.title, surrounding.title),
                      sceneIn(surrounding, work.words), operations, [=](SimRun &run) {
                          QStringList seen = run.transcript().work("g");
                          QCOMPARE(int(seen.removeAll("driver-detach 0 ok")), detached);
                          COMPARE_LINES(seen, wire);
                          VERIFY_BALANCED(run);
                          for (const char *other : {"b", "c"}) { // they are asked by the scan only
                              QVERIFY(run.transcript().requests(other).size() <= 1);
                          }
                          if (writes) {
                              COMPARE_MEMORIES(run, images);
                              QCOMPARE(run.errorsOf(2), QStringList());
                          }
                      });
        }
    }
    batch.run();
}

// The one at interface 0 is detached for each request, and stays so; the others keep theirs.
void TestCompany::driversOfOtherInterfacesAreLeftAlone()
{
    const Images images = tinyImages(velk3);
    SimRun run(sceneOf(velk3, "interfaces 3\nkernel-driver uvcvideo\n"
                              "kernel-driver snd-usb-audio interface 1\n"
                              "kernel-driver usbhid interface 2"),
               {"scan", "update", "S1", save("p", velk3, images), "get-flags", "S1"});
    RUN(run);
    COMPARE_MEMORIES(run, images);
    QStringList drivers;
    for (const QString &line : run.transcript().work("g")) {
        if (line.startsWith("driver-") || line.startsWith("claim")) {
            drivers += line;
        }
    }
    COMPARE_LINES(drivers, QStringList({"driver-detach 0 ok", "claim 0 ok", "driver-attach 0 busy",
                                        "claim 0 ok", "driver-attach 0 busy", "claim 0 ok",
                                        "driver-attach 0 busy"}));
}

void TestCompany::sandboxAtAnotherSpeedOfTheSameBusIsFound()
{
    const Images images = tinyImages(velk3);
    SimRun run(soft("speed 480\nreturn after 300 speed 10000"),
               {"scan", "update", "S1", save("p", velk3, images)});
    RUN(run);
    QCOMPARE(run.errorsOf(2), QStringList());
    COMPARE_MEMORIES(run, images);
}

// Whatever it does in the three seconds that it is given: it is looked for at any address.
void TestCompany::sandboxThatComesBackTwiceIsFound()
{
    const Images images = tinyImages(velk3);
    SimRun run(soft("return after 300 again 300"),
               {"scan", "update", "S1", save("p", velk3, images)});
    RUN(run);
    QCOMPARE(run.transcript().count("g", "plug"), 3);
    QCOMPARE(run.errorsOf(2), QStringList());
    COMPARE_MEMORIES(run, images);
}

// On its new bus it runs all the same, and is listed there; loaded once more it stays there.
void TestCompany::sandboxOnAnotherBusIsNotFoundAndTakesASecondPress()
{
    const Images images = tinyImages(velk3);
    const QString package = save("p", velk3, images);
    SimRun run(soft("speed 480\nreturn after 300 bus 2 speed 5000"),
               {"scan", "update", "S1", package, "scan", "update", "S1", package});
    RUN(run);
    COMPARE_LINES(run.signalsOf(2), s_notFound);
    QCOMPARE(run.devicesOf(3).size(), 1);
    QCOMPARE(run.devicesOf(3)[0]["busNumber"].toInt(), 2);
    QCOMPARE(run.devicesOf(3)[0]["productId"].toInt(), 0x360F);
    QCOMPARE(run.errorsOf(4), QStringList());
    QCOMPARE(run.signalsOf(4).last(), "complete");
    COMPARE_MEMORIES(run, images);
}

// It is listed as what it says that it is. Any package of the maker's fits a repair identity, and
// so every press loads the sandbox once more, and then looks in vain for the identity that never
// comes.
void TestCompany::sandboxOfAnotherProductIsNotFoundUntilPowerIsCycled()
{
    const Images images = tinyImages(velk3);
    const QString package = save("p", velk3, images);
    SimRun run(soft("return after 300 as e5c1:362f"),
               {"scan", "update", "S1", package, "scan", "update", "S1", package, "control",
                "set g return after 300", "control", "power-cycle g", "scan", "update", "S1",
                package});
    RUN(run);
    COMPARE_LINES(run.signalsOf(2), s_notFound);
    QCOMPARE(run.devicesOf(3).value(0)["productId"].toInt(), 0x362F);
    COMPARE_LINES(run.signalsOf(4), s_notFound);
    QCOMPARE(run.devicesOf(7).value(0)["productId"].toInt(), 0x3600);
    QCOMPARE(run.errorsOf(8), QStringList());
    COMPARE_MEMORIES(run, images);
}

namespace {

// How a sandbox comes back, and what its owner then does.
struct Comeback
{
    const char *title;
    QByteArray words;
    bool found;
    QStringList remedy;
};

std::vector<Comeback> allComebacks(const QByteArray &otherProduct, const QString &package)
{
    const QStringList again{"update", "S1", package};
    const QStringList comesBackWell{"control", "set g return after 300"};
    return {
        {"at another speed", "speed 480\nreturn after 300 speed 10000", true, {}},
        {"twice", "return after 300 again 300", true, {}},
        {"late", "return after 5000", false,
         comesBackWell + QStringList{"scan-until-found"} + again},
        {"on another bus", "speed 480\nreturn after 300 bus 2 speed 5000", false,
         QStringList{"scan"} + again},
        {"as another product", "return after 300 as " + otherProduct, false,
         comesBackWell + QStringList{"control", "power-cycle g", "scan"} + again},
    };
}

} // namespace

// Of the other products, and of a device that was in another of the modes.
void TestCompany::everySandboxThatComesBackOtherwise()
{
    const struct
    {
        const ProductFacts *product;
        QByteArray mode;
        QByteArray otherProduct;
    } devices[] = {{&velk3, "soft-f", "e5c1:362f"},
                   {&sorn3, "sandbox", "e5c1:360f"},
                   {&velk3_4k, "hard", "e5c1:360f"}};
    SimBatch batch;
    for (const auto &device : devices) {
        const Images images = tinyImages(*device.product);
        const QString package = save(device.product->key, *device.product, images);
        for (const Comeback &comeback : allComebacks(device.otherProduct, package)) {
            const QStringList operations =
                QStringList{"scan", "update", "S1", package} + comeback.remedy;
            const QString title =
                QString("%1 %2, %3").arg(device.product->key, QString(device.mode), comeback.title);
            const bool found = comeback.found;
            // The rescue is the last of the operations.
            const int last =
                2 + int(comeback.remedy.count("control")) +
                int(comeback.remedy.filter(QRegularExpression("^(scan|update)")).size());
            batch.add(title,
                      sceneOf(*device.product, "mode " + device.mode + '\n' + comeback.words),
                      operations, [=](SimRun &run) {
                          if (!found) {
                              COMPARE_LINES(run.signalsOf(2), s_notFound);
                          }
                          QCOMPARE(run.errorsOf(last), QStringList());
                          QCOMPARE(run.signalsOf(last).count("complete"), 1);
                          QCOMPARE(run.signalsOf(last).mid(run.signalsOf(last).size() - 2),
                                   QStringList({"progress 100", "complete"}));
                          COMPARE_MEMORIES(run, images);
                          VERIFY_BALANCED(run);
                      });
        }
    }
    batch.run();
}

namespace {

// Two velk3 at port 4 of two hubs of the same bus.
QByteArray twoHubs(const QByteArray &g, const QByteArray &h)
{
    return "device g\nproduct velk3\nserial \"S1\"\nbehind-hub 1\nport 4\n" + g +
           "\ndevice h\nproduct velk3\nserial \"S2\"\nbehind-hub 2\nport 4\n" + h + '\n';
}

} // namespace

// Bus, port number and identity are equal. The one that has come back last is the first that libusb
// lists.
void TestCompany::sandboxesAtEqualPortsOfTwoHubs()
{
    const Images images = tinyImages(velk3);
    const QString package = save("p", velk3, images);
    SimBatch batch;
    for (const char *serial : {"S1", "S2"}) {
        batch.add(serial,
                  twoHubs("mode sandbox\nreturn after 300", "mode sandbox\nreturn after 300"),
                  {"scan", "update", serial, package}, [=](SimRun &run) {
                      const bool first = QString(serial) == "S1";
                      QCOMPARE(run.devicesOf(1).size(), 2);
                      QCOMPARE(run.errorsOf(2), QStringList());
                      QCOMPARE(run.memory(first ? "g" : "h", "fx3"), images.fx3);
                      QCOMPARE(run.memory(first ? "h" : "g", "fx3"), QByteArray());
                      QCOMPARE(run.transcript().requests(first ? "h" : "g"), QStringList());
                  });
    }
    batch.run();
}

// A request goes to the address that was listed, so each is asked what is meant for it.
void TestCompany::requestsToOneOfTwoSandboxesAtEqualPorts()
{
    const struct
    {
        const char *name;
        const char *serial;
        char flags;
        QByteArray status;
        QByteArray mode;
    } devices[] = {
        {"g", "S1", 5, statusRecord("60ea00008007380400"), QByteArray::fromHex("0005d00200")},
        {"h", "S2", 6, statusRecord("50c300000005d00200"), QByteArray::fromHex("2003580201")}};
    const QByteArray scene = twoHubs("mode sandbox\nflags 5\nuser-mode 1 1280x720 on\n"
                                     "input 1920x1080p 60000 \"HDMI\" \"RGB\"",
                                     "mode sandbox\nflags 6\nuser-mode 1 800x600 off\n"
                                     "input 1280x720p 50000 \"HDMI\" \"RGB\"");
    SimBatch batch;
    for (const auto &device : devices) {
        const QString serial = device.serial;
        const QStringList wire = WireModel()
                                     .request({Direction::In, 0xE2, 0, 0, 1}, {1, device.flags})
                                     .request({Direction::In, 0xB2, 0, 0, 29}, device.status)
                                     .request({Direction::In, 0xB3, 0, 1, 5}, device.mode)
                                     .request({Direction::Out, 0xE3, 0, 0, 1}, {1, 0x12})
                                     .request({Direction::Out, 0xB3, 0, 2, 5}, device.mode)
                                     .lines();
        const QString name = device.name;
        batch.add(serial, scene,
                  {"scan", "get-flags", serial, "get-status", serial, "get-mode", serial, "1",
                   "set-flags", serial, "12", "set-mode", serial, "2", device.mode.toHex()},
                  [=](SimRun &run) {
                      COMPARE_LINES(run.transcript().requests(name), wire);
                      QCOMPARE(run.transcript().requests(name == "g" ? "h" : "g"), QStringList());
                      QCOMPARE(run.signalsOf(0).filter("error"), QStringList());
                      QCOMPARE(run.state(name)["flags"].toInt(), 0x12);
                  });
    }
    batch.run();
}

// While the repair of "g" waits for its sandbox, another one is plugged in at the same port number
// of the other hub. It gets what was meant for "g", and nobody can tell.
void TestCompany::deviceAtTheSamePortNumberThatCameLastIsTaken()
{
    const Images images = tinyImages(velk3);
    const QString script =
        QString("'%1' scan update S1 '%2' & "
                "until grep -q '\"g\".*\"plug\".*\"sandbox\"' \"$CAPSO_SIM_DIR/transcript.jsonl\"; "
                "do sleep 0.05; done; "
                "'%3' --control \"$CAPSO_SIM_DIR\" power-cycle h >/dev/null; wait")
            .arg(CAPSO_DRIVER, save("p", velk3, images), CAPSO_SIM);
    SimRun run(twoHubs("mode soft\nreturn after 300", "id e5c1:360f"), {"-c", script}, "/bin/sh");
    RUN(run);
    QCOMPARE(run.errorsOf(2), QStringList());
    QCOMPARE(run.signalsOf(2).last(), "complete");
    QCOMPARE(run.memory("h", "fx3"), images.fx3);
    QCOMPARE(run.memory("g", "fx3"), QByteArray());
}

QTEST_GUILESS_MAIN(TestCompany)
#include "tst_device_company.moc"

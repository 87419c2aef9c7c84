// Every text that a user can see must reach the translators: lupdate collects them from the
// sources, and the list here, written by hand, tells what it must find and under which context.

#include <QFile>
#include <QMap>
#include <QProcess>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

namespace {

using Texts = QMap<QString, QSet<QString>>; // of each context

const char s_dialog[] = "UpdateRepair";
const char s_scanner[] = "DeviceScanner::Worker";
const char s_probes[] = "DeviceProbes";
const char s_update[] = "UpdateTask::Worker";
const char s_configuration[] = "ConfigDeviceTask::Worker";
const char s_cli[] = "Cli";

struct Expected
{
    const char *context;
    const char *text;
};

const Expected s_expected[] = {
    {s_dialog, "Capso Config"},
    {s_dialog, "Devices:"},
    {s_dialog, "Refresh device list"},
    {s_dialog, "Firmware"},
    {s_dialog, "Firmware:"},
    {s_dialog, "Select"},
    {s_dialog, "Browse for firmware file"},
    {s_dialog, "UPDATE"},
    {s_dialog, "Update firmware"},
    {s_dialog, "Settings"},
    {s_dialog, "Use input signal resolution"},
    {s_dialog, "Preserve aspect ratio"},
    {s_dialog, "Performance mode"},
    {s_dialog, "Audio selector for multichannel inputs"},
    {s_dialog, "Apply"},
    {s_dialog, "User Modes"},
    {s_dialog, "User mode 1"},
    {s_dialog, "User mode 2"},
    {s_dialog, "User mode 3"},
    {s_dialog, "Width:"},
    {s_dialog, "Height:"},
    {s_dialog, "Input signal: "},
    // For screen readers.
    {s_dialog, "Devices"},
    {s_dialog, "The capture devices that were found. The chosen one is updated and configured."},
    {s_dialog, "Device pages"},
    {s_dialog, "Firmware file"},
    {s_dialog, "The path of the package (.fw) that UPDATE writes to the chosen device"},
    {s_dialog, "Select firmware file"},
    {s_dialog, "Apply settings"},
    {s_dialog, "Apply user modes"},
    {s_dialog, "User mode 1 width"},
    {s_dialog, "User mode 1 height"},
    {s_dialog, "User mode 2 width"},
    {s_dialog, "User mode 2 height"},
    {s_dialog, "User mode 3 width"},
    {s_dialog, "User mode 3 height"},
    {s_dialog,
     "<html><head/><body><p><span style=\" font-weight:600;\">Use input signal "
     "resolution</span><br/>"
     "<br/>When selected, Capso adds the exact resolution of your input signal to the list of "
     "supported "
     "output resolutions. This is the only way to enable 1:1 capture for special frame sizes. The "
     "disadvantage of selecting this mode is that any change in input signal "
     "(programmatic\xC2\xA0or by "
     "connecting a different input) causes Capso to renegotiate its resolution with the "
     "application. "
     "This can cause an interruption in the captured stream.\xC2\xA0</p></body></html>"},
    {s_dialog,
     "<html><head/><body><p><span style=\" font-weight:600;\">Preserve aspect ratio</span>"
     "<br/><br/>When selected, Capso preserves the aspect ratio of your input signal by adding "
     "black bars to the sides or top and bottom of the frame if the application using the "
     "signal requests a frame size with a different aspect ratio.</p></body></html>"},
    {s_dialog,
     "<html><head/><body><p><span style=\" font-weight:600;\">Performance mode</span></p><p>"
     "When selected, Capso enters and exits system suspend mode (i.e. sleep) faster by "
     "disabling support for the Suspend/U3 USB power state. This means Capso starts working "
     "again faster after your computer wakes from a sleep state, at the cost of increased "
     "power consumption.</p></body></html>"},
    {s_dialog, "%4 (%3, %5) [%1:%2]"},
    {s_dialog, " (%1)"},
    {s_dialog, "device not selected"},
    {s_dialog, "request not supported"},
    {s_dialog, "no signal"},
    {s_dialog, "Device Scanning Error"},
    {s_dialog, "Device Access Error"},
    {s_dialog, "Quorlin Updater"},
    {s_dialog, "A device is being updated. It needs repair if the update is interrupted."},
    {s_dialog, "Please select a device from the list"},
    {s_dialog, "Please select the firmware file"},
    {s_dialog, "Select firmware update file"},
    {s_dialog, "DO NOT INTERRUPT"},
    {s_dialog, "Update Error"},
    {s_dialog, "Update Completed"},
    {s_dialog, "Do not disconnect. Retry. Call Support."},
    {s_dialog, "No capture device found. Plug it in and press the round arrow."},
    {s_dialog, "A capture device is connected, but you have no right to use it."},
    {s_dialog,
     "Install the package capso-config-udev, then unplug the device and plug it in again."},
    {s_dialog, "A capture device is connected, but another program is using it."},
    {s_dialog,
     "A capture device is connected, but it does not answer. Unplug it and plug it in again."},

    {s_scanner, "Access Denied: Administrative privilegies are required to access the device"},
    {s_probes, "Soft Repair Mode"},
    {s_probes, "Hard Repair Mode"},

    {s_update, "Cannot open firmware package: %1"},
    {s_update, "Product info file found but can't be opened: %1"},
    {s_update, "Can't read Product info file: %1"},
    {s_update, "Unsupported product: '%1'"},
    {s_update, "Invalid firmware package. File(s) not found: %1"},
    {s_update, "Selected device and firmware incompatible"},
    {s_update, "Cannot Access Device. Administrative privilegies may be required"},
    {s_update, "Error: failed to connect to FPGA: %1"},
    {s_update, "Error: failed to start microcode reflashing: %1"},
    {s_update, "Error: failed to find microcode image"},
    {s_update, "Error: failed to read archieve %d"},
    {s_update, "Error: failed to write microcode block: %1"},
    {s_update, "Error: failed to complete microcode reflash: %1"},
    {s_update, "Error: failed to start FPGA reflashing: %1"},
    {s_update, "Error: failed to find FPGA image"},
    {s_update, "Error: failed to read FPGA image: %1"},
    {s_update, "Error: failed to write FPGA header block:  %1"},
    {s_update, "Error: failed to write FPGA block:  %1"},
    {s_update, "Error: failed FPGA CRC check: %1"},
    {s_update, "Error: failed to complete FPGA reflash: %1"},
    {s_update, "Can't open EDID file"},
    {s_update, "EDID data has incorrect format"},
    {s_update, "EDID data has incorrect checksum"},
    {s_update, "EDID data is empty"},
    {s_update, "the EDID has %1 bytes, and one request takes %2: %3"},
    {s_update, "the EDID has %1 bytes, of which a device would be sent %2"},
    {s_update, "Can't initiate EDID IO access (err: %1)"},
    {s_update, "Can't send EDID data to the device (err: %1)"},
    {s_update, "Can't finalize EDID IO access (err: %1)"},
    {s_update, "Error: failed to verify microcode signature"},
    {s_update, "Error: failed to write microcode: %1"},
    {s_update, "Fail to verify image"},
    {s_update, "FX3 checksum error"},
    {s_update, "Error: failed to start microcode: %1"},
    {s_update, "Access Denied: Administrative privilegies are required to access the device"},
    {s_update, "Error: Failed to install driver"},
    {s_update, "Error: Failed to init device for repair"},
    {s_update, "it is too long"},
    {s_update, "the bitstream is empty, or not as long as is stated"},
    {s_update, "the microcode is empty, or not as long as is stated"},
    {s_update, "the sandbox cannot be opened: %1"},

    {s_configuration, "Cannot access USB. Administrative rights may be required."},
    {s_configuration, "Error retreiving config device data: req=%1, status: %2"},
    {s_configuration, "Error setting device flags: %1"},

    {s_cli, "[%1] at %2: %3"},
    {s_cli, "%1 at %2"},
    {s_cli, "no right to open it"},
    {s_cli, "it has no device node"},
    {s_cli, "another program holds it"},
    {s_cli, "the driver %1 holds it"},
    {s_cli, "it does not answer"},
    {s_cli, "speed not known"},
    {s_cli, "%1 Gbit/s"},
    {s_cli, "%1 Mbit/s"},
    {s_cli, "this user may not open it: %1"},
    {s_cli, "there is no group plugdev; make it, join it, and log in again"},
    {s_cli, "join the group plugdev, and log in again"},
    {s_cli, "the user has joined the group plugdev since this login; log in again, or begin a "
            "shell that knows of it"},
    {s_cli, "it was plugged in before the udev rules were installed"},
    {s_cli, "although its group may; look for what else forbids it"},
    {s_cli, "the udev rules are masked by %1"},
    {s_cli, "udev rules: masked by %1"},
    {s_cli, "it might be taken for the device at %1, which runs its repair firmware on a port of "
            "the same number: unplug that one first"},
    {s_cli, "it is not a file"},
    {s_cli, "it is too long"},
    {s_cli, "no copy of it can be made: %1"},
    {s_cli, "another program holds it; close that program"},
    {s_cli, "it is lent to another machine"},
    {s_cli, "it has no device node; a container must be given %1"},
    {s_cli, "its link is slower than USB 3: use a USB 3 port and cable"},
    {s_cli, "yes"},
    {s_cli, "no"},
    {s_cli, "%1 %2: %3, may be opened: %4, held: %5"},
    {s_cli, "this system does not show its USB devices, so what keeps one from being used is not "
            "known"},
    {s_cli, "the system knows no capture device"},
    {s_cli, "the udev rules are not installed"},
    {s_cli, "not installed"},
    {s_cli, "the udev rules in %1 are not this version's"},
    {s_cli, "udev rules: %1, which are not this version's"},
    {s_cli, "udev rules: %1"},
    {s_cli, "no capture devices found"},
    {s_cli, "'%1' is not N=WIDTHxHEIGHT, N=on or N=off, with N from 1 to 3"},
    {s_cli, "%1 blocks, sums right"},
    {s_cli, "boot image of %1 sections, entry %2, sum right"},
    {s_cli, "%1 bytes at %2"},
    {s_cli, "  %1: %2, %3 bytes, CRC %4"},
    {s_cli, "begins like a boot image: %1 (an update writes it all the same, and the device "
            "decides)"},
    {s_cli, "%1: product %2"},
    {s_cli, "  fits %1; named, any device of the vendor in soft repair and any in hard repair"},
    {s_cli, "  fits %1; holds an EDID only and repairs no device"},
    {s_cli, "cannot use %1"},
    {s_cli, "there is no device '%1'"},
    {s_cli, "there is no device '%1' among those that can be used; these cannot"},
    {s_cli, "no device fits"},
    {s_cli, "'%1' names several devices"},
    {s_cli, "several devices fit; name one"},
    {s_cli, "'%1' is not NAME=on or NAME=off; the names are input-resolution, aspect-ratio, "
            "performance and audio-selector"},
    {s_cli, "%1: left out, it has version %2"},
    {s_cli, "the device's answer to request %1 is too short"},
    {s_cli, "%1 (modes written before: %2)"},
    {s_cli, "its repair firmware runs, but cannot be used: %1; 'capso-cli doctor' tells what mends "
            "it"},
    {s_cli, "interrupted before its update began"},
    {s_cli, "interrupted, ends once every device has been asked"},
    {s_cli, "the system gives this program no thread"},
    {s_cli, "the package holds an EDID only and repairs no device"},
    {s_cli, "%1 of %2 devices failed: %3"},
    {s_cli, "%1:%2 left"},
    {s_cli, "the update did not take place"},
    {s_cli, "checking"},
    {s_cli, "sandbox"},
    {s_cli, "microcode"},
    {s_cli, "bitstream"},
    {s_cli, "EDID"},
    {s_cli, "done"},
};

// Shown as they are in every language.
const char *const s_untranslated[] = {
    "Firmware files (*.fw);; All (*)", "%1 %2x%3%4@%5, %6", "unknown", "i", "p", "%p%",
};

// What lupdate makes of the sources.
Texts collect()
{
    QTemporaryDir directory;
    const QString file = directory.filePath("texts.ts");
    QProcess lupdate;
    lupdate.setProcessChannelMode(QProcess::MergedChannels);
    lupdate.start(CAPSO_LUPDATE, {"-recursive", CAPSO_SOURCES, "-ts", file});
    if (!lupdate.waitForFinished(60000) || lupdate.exitCode() != 0) {
        qFatal("lupdate: %s", lupdate.readAll().constData());
    }
    QFile ts(file);
    if (!ts.open(QIODevice::ReadOnly)) {
        qFatal("lupdate wrote nothing");
    }
    Texts texts;
    QString context;
    QXmlStreamReader reader(&ts);
    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isStartElement() && reader.name() == QLatin1String("name")) {
            context = reader.readElementText();
        } else if (reader.isStartElement() && reader.name() == QLatin1String("source")) {
            texts[context].insert(reader.readElementText());
        }
    }
    return texts;
}

} // namespace

class TestTranslations : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { texts = collect(); }
    void everyTextIsFoundInItsContext();
    void everyTextFoundIsOnTheList();
    void someTextsAreNotForTranslators();

private:
    Texts texts;
};

void TestTranslations::everyTextIsFoundInItsContext()
{
    QStringList missing;
    for (const Expected &expected : s_expected) {
        if (!texts.value(expected.context).contains(QString::fromUtf8(expected.text))) {
            missing += QStringLiteral("%1: %2").arg(QLatin1String(expected.context),
                                                    QString::fromUtf8(expected.text));
        }
    }
    QCOMPARE(missing, QStringList());
}

// A text that is added has to be added here too, by someone who has thought about its context.
void TestTranslations::everyTextFoundIsOnTheList()
{
    Texts listed;
    for (const Expected &expected : s_expected) {
        listed[expected.context].insert(QString::fromUtf8(expected.text));
    }
    for (auto found = texts.cbegin(); found != texts.cend(); ++found) {
        QVERIFY2(listed.contains(found.key()), qPrintable(found.key()));
        const QSet<QString> unlisted = found.value() - listed.value(found.key());
        QCOMPARE(unlisted, QSet<QString>());
    }
}

void TestTranslations::someTextsAreNotForTranslators()
{
    for (const char *text : s_untranslated) {
        for (const QSet<QString> &found : texts) {
            QVERIFY2(!found.contains(QLatin1String(text)), text);
        }
    }
}

QTEST_GUILESS_MAIN(TestTranslations)
#include "tst_translations.moc"

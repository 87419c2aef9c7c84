// The records of a device, as the dialog shows them: it asks for them as it does for a person who
// goes from tab to tab.
//
// Input: flags (1 byte), three user modes (5 bytes each), input status (29 bytes). Where the input
// ends, the device's answer is as short.

#include "acceptingusb.h"
#include "flagboxes.h"
#include "fuzzing.h"
#include "updaterepair.h"

#include <QApplication>
#include <QCheckBox>
#include <QGroupBox>
#include <QLabel>
#include <QListWidget>
#include <QSpinBox>
#include <QTabWidget>
#include <QTextDocument>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

constexpr std::size_t s_modeSize = 5;
constexpr std::size_t s_modesAt = 1;
constexpr std::size_t s_statusAt = s_modesAt + 3 * s_modeSize;
constexpr std::size_t s_statusSize = 29;
constexpr std::size_t s_allSize = s_statusAt + s_statusSize;

enum Request : quint8 { InputStatus = 0xB2, UserMode = 0xB3, GetFlags = 0xE2 };

struct Grabber : libusb_device
{
    Grabber() : libusb_device(0xE5C1, 0x3601) {}

    int controlTransfer(const Transfer &transfer) override
    {
        switch (transfer.request) {
        case GetFlags:
            return answer(transfer, 0, s_modesAt);
        case UserMode:
            require(transfer.index < 3, "there are three user modes");
            return answer(transfer, s_modesAt + transfer.index * s_modeSize, s_modeSize);
        case InputStatus:
            return answer(transfer, s_statusAt, s_statusSize);
        default:
            return libusb_device::controlTransfer(transfer);
        }
    }

    int answer(const Transfer &transfer, std::size_t from, std::size_t size) const
    {
        require(transfer.isIn() && transfer.length == size, "a record is read whole");
        const std::size_t there = std::min(records.size() - std::min(from, records.size()), size);
        std::memcpy(transfer.data, records.data() + std::min(from, records.size()), there);
        return int(there);
    }

    std::string records;
};

// The dialog, and the one device that it lists.
struct Screen
{
    Screen()
    {
        bus::setDevices({&device});
        dialog = new UpdateRepair;
        dialog->show();
        auto *list = find<QListWidget>("devicesList");
        waitUntil([&] { return list->count() == 1; });
        list->setCurrentRow(0);
        waitUntil([&] { return find<QTabWidget>("tabWidget")->isEnabled(); });
    }

    template<typename Widget> Widget *find(const QString &name) const
    {
        auto *widget = dialog->findChild<Widget *>(name);
        require(widget != nullptr, "the dialog has its widgets");
        return widget;
    }

    template<typename Condition> static void waitUntil(Condition holds)
    {
        while (!holds()) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
    }

    // Shows a tab and waits until what it shows has been read: until then it is disabled.
    void showTab(const char *name) const
    {
        auto *tabs = find<QTabWidget>("tabWidget");
        tabs->setCurrentWidget(find<QWidget>(name));
        waitUntil([&] { return tabs->isEnabled(); });
    }

    void readStatus() const
    {
        const QString unread = QStringLiteral("?");
        find<QLabel>("inputSignalLabel")->setText(unread);
        QMetaObject::invokeMethod(dialog, "onInputStatusTimer");
        waitUntil([&] { return find<QLabel>("inputSignalLabel")->text() != unread; });
    }

    Grabber device;
    UpdateRepair *dialog;
};

unsigned numberAt(const std::string &records, std::size_t at, int bytes)
{
    unsigned number = 0;
    for (int i = bytes; i-- > 0;) {
        number = number << 8 | static_cast<unsigned char>(records[at + std::size_t(i)]);
    }
    return number;
}

void requireFlags(const Screen &screen, unsigned flags)
{
    for (const FlagBox &box : allFlagBoxes()) {
        const QByteArray name = QByteArray(box.name) + "CheckBox";
        const bool set = (flags & unsigned(box.bit)) != 0;
        require(screen.find<QCheckBox>(name.constData())->isChecked() == set, box.name);
    }
}

void requireMode(const Screen &screen, int mode, const std::string &records)
{
    const std::size_t at = s_modesAt + std::size_t(mode) * s_modeSize;
    const QString name = QStringLiteral("userMode%1").arg(mode + 1);
    const auto value = [&](const char *part) {
        return unsigned(screen.find<QSpinBox>(name + part)->value());
    };
    require(value("Width") == numberAt(records, at, 2), "a mode's width");
    require(value("Height") == numberAt(records, at + 2, 2), "a mode's height");
    require(screen.find<QGroupBox>(name)->isChecked() == (records[at + 4] == 0), "a mode in use");
}

QString statusText(const std::string &records)
{
    const std::string status = records.substr(s_statusAt, s_statusSize);
    const unsigned rate = numberAt(status, 20, 4);
    const unsigned width = numberAt(status, 24, 2);
    const unsigned height = numberAt(status, 26, 2);
    if (rate == 0 || width == 0 || height == 0) {
        return QStringLiteral("no signal");
    }
    const auto text = [&](std::size_t from) {
        const std::string rest = status.substr(from);
        const std::string known = rest.substr(0, rest.find('\0'));
        return known.empty() ? QStringLiteral("unknown")
                             : QString::fromLatin1(known.data(), int(known.size()));
    };
    char middle[64];
    std::snprintf(middle, sizeof(middle), " %ux%u%c@%.2g, ", width, height, status[28] ? 'i' : 'p',
                  rate / 1000.0);
    return text(12) + middle + text(0);
}

Screen *s_screen = nullptr;

} // namespace

// fontconfig loses a few hundred bytes once, when Qt asks it for its first font.
extern "C" const char *__lsan_default_suppressions() // NOLINT: the sanitizer's name
{
    return "leak:libfontconfig.so";
}
extern "C" const char *__lsan_default_options() // NOLINT: the sanitizer's name
{
    return "print_suppressions=0";
}

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    new QApplication(*argc, *argv); // never deleted: libFuzzer ends with exit()
    startFuzzing({});
    s_screen = new Screen;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    Screen &screen = *s_screen;
    screen.device.records.assign(reinterpret_cast<const char *>(data), std::min(size, s_allSize));
    std::string records = screen.device.records;
    records.resize(s_allSize); // what the device leaves out reads as zero

    screen.showTab("tabSettings");
    requireFlags(screen, numberAt(records, 0, 1));
    screen.showTab("tabUserMode");
    for (int mode = 0; mode < 3; ++mode) {
        requireMode(screen, mode, records);
    }
    screen.readStatus();
    const auto *label = screen.find<QLabel>("inputSignalLabel");
    require(label->text() == statusText(records), "the status line");
    require(label->textFormat() == Qt::PlainText || !Qt::mightBeRichText(label->text()),
            "a device's text is shown as it is");
    QCoreApplication::processEvents();
    bus::requireNothingHeld();
    return 0;
}

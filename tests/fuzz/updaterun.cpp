#include "updaterun.h"

#include "acceptingusb.h"
#include "fuzzing.h"
#include "memoryfile.h"
#include "updatetask.h"

#include <QEventLoop>

namespace {

// The one update task of the process, and what it says.
class Updater
{
public:
    Updater()
    {
        QObject::connect(&task, &UpdateTask::error,
                         [this](const QString &text) { outcome.errors += text; });
        QObject::connect(&task, &UpdateTask::progress,
                         [this](int value) { outcome.lastProgress = value; });
        QObject::connect(&task, &UpdateTask::complete, [this] {
            ++completions;
            loop.quit();
        });
    }

    UpdateOutcome run(const DeviceDescription &device, const QString &path)
    {
        const UpdateOutcome result = runOne(device, path);
        // Updates run one after another, so a second completion of this one would come before
        // anything that the next one says. The next one has no package and says so.
        const UpdateOutcome fence = runOne(device, QStringLiteral("/proc/self/fd/none"));
        require(fence.errors.size() == 1 && fence.lastProgress == -1,
                "an update says nothing after its completion");
        return result;
    }

private:
    UpdateOutcome runOne(const DeviceDescription &device, const QString &path)
    {
        outcome = {};
        completions = 0;
        emit task.start(device, path);
        loop.exec();
        require(completions == 1, "an update ends with one complete()");
        return outcome;
    }

    UpdateTask task;
    QEventLoop loop;
    UpdateOutcome outcome;
    int completions = 0;
};

} // namespace

std::vector<const char *> withPackageTexts(std::vector<const char *> texts)
{
    for (const char *text : {
             "Cannot open firmware package: %1",
             "Product info file found but can't be opened: %1",
             "Can't read Product info file: %1",
             "Unsupported product: '%1'",
             "Invalid firmware package. File(s) not found: %1",
             "Error: failed to find microcode image",
             "Error: failed to read archieve %d",
             "Error: failed to find FPGA image",
             "Error: failed to read FPGA image: %1",
             "Can't open EDID file",
             "EDID data has incorrect format",
             "EDID data has incorrect checksum",
             "Error: failed to verify microcode signature",
             "FX3 checksum error",
         }) {
        texts.push_back(text);
    }
    return texts;
}

UpdateOutcome runUpdate(const DeviceDescription &device, const void *package, std::size_t size)
{
    static auto *updater = new Updater; // never deleted: libFuzzer ends with exit()
    const MemoryFile file(package, size);
    const UpdateOutcome outcome = updater->run(device, file.path());
    for (const QString &text : outcome.errors) {
        requireKnownText(text);
    }
    require(!outcome.errors.isEmpty() || outcome.lastProgress == 100,
            "an update without an error text is complete");
    bus::requireNothingHeld();
    return outcome;
}

UpdateOutcome runUpdate(const DeviceDescription &device, const QByteArray &package)
{
    return runUpdate(device, package.constData(), std::size_t(package.size()));
}

DeviceDescription describeDevice(quint16 vendorId, quint16 productId, DeviceMode mode)
{
    DeviceDescription description;
    description.vendorId = vendorId;
    description.productId = productId;
    description.busNumber = bus::Number;
    description.portNumber = bus::Port;
    description.deviceAddress = bus::Address;
    description.mode = mode;
    return description;
}

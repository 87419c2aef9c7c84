#include "driver.h"

#include "simcontrol.h"

#include <QTimer>

#include <cstring>

namespace {

// How long to listen on after an operation has completed, for a signal that should not come.
constexpr int s_strayMs = 30;

QJsonObject toJson(const DeviceDescription &device)
{
    return {
        {"vendorId", device.vendorId},
        {"productId", device.productId},
        {"interfaceNumber", device.interfaceNumber},
        {"busNumber", device.busNumber},
        {"deviceAddress", device.deviceAddress},
        {"portNumber", device.portNumber},
        {"mode", int(device.mode)},
        {"productName", device.productName},
        {"serialNumber", device.serialNumber},
        {"versionString", device.versionString},
        {"modeText", device.modeText},
        {"referenced", device.device != nullptr},
        {"secondPass", device.secondPass},
    };
}

// How many words after its name and its device an operation takes; -1 for an unknown one.
int argumentCount(const QString &operation)
{
    static const struct
    {
        const char *name;
        int count;
    } s_operations[] = {
        {"update", 1},   {"get-flags", 0}, {"set-flags", 1},
        {"get-mode", 1}, {"set-mode", 2},  {"get-status", 0},
    };
    for (const auto &known : s_operations) {
        if (operation == QLatin1String(known.name)) {
            return known.count;
        }
    }
    return -1;
}

uint16_t number(const QString &word)
{
    return word.toUShort(nullptr, 0);
}

} // namespace

Driver::Driver()
    : flagsAction(&configTask, nullptr),
      statusAction(&configTask, nullptr),
      modeAction(&configTask, nullptr)
{
    listenToScanner();
    listenToUpdate();
    listenToConfig(&configTask, "task");
    listenToConfig(&flagsAction, "flags");
    listenToConfig(&statusAction, "status");
    listenToConfig(&modeAction, "modes");
}

int Driver::run(QStringList words)
{
    while (!words.isEmpty()) {
        log.beginOperation();
        const QString operation = words.takeFirst();
        if (!runOperation(operation, words)) {
            log.write("unknown", {{"word", operation}});
            return 3;
        }
    }
    return 0;
}

void Driver::listenToScanner()
{
    connect(&scanner, &DeviceScanner::newDevice, this, [this](const DeviceDescription &device) {
        log.write("newDevice", toJson(device));
        devices.append(device);
    });
    connect(&scanner, &DeviceScanner::error, this, [this](const QString &text) {
        log.write("error", {{"text", text}});
    });
    connect(&scanner, &DeviceScanner::complete, this, [this] {
        log.write("complete");
        loop.quit();
    });
}

void Driver::listenToUpdate()
{
    connect(&updateTask, &UpdateTask::progress, this, [this](int value) {
        log.write("progress", {{"value", value}});
    });
    connect(&updateTask, &UpdateTask::error, this, [this](const QString &text) {
        log.write("error", {{"text", text}});
    });
    connect(&updateTask, &UpdateTask::complete, this, [this] {
        log.write("complete");
        loop.quit();
    });
}

void Driver::listenToConfig(ConfigDeviceBase *front, const QString &name)
{
    const auto endOperation = [this, front] {
        if (asking == front) {
            loop.quit();
        }
    };
    connect(front, &ConfigDeviceBase::getRequestComplete, this,
            [=](uint8_t request, const ConfigDeviceDataPtr &data, uint16_t size) {
                QJsonObject fields{{"front", name}, {"request", request}, {"size", size}};
                if (data) {
                    const QByteArray bytes(
                        static_cast<const char *>(static_cast<const void *>(data.data())), size);
                    fields["data"] = QString::fromLatin1(bytes.toHex());
                } else {
                    fields["data"] = QJsonValue();
                }
                log.write("getRequestComplete", fields);
                endOperation();
            });
    connect(front, &ConfigDeviceBase::setRequestComplete, this, [=](uint8_t request) {
        log.write("setRequestComplete", {{"front", name}, {"request", request}});
        endOperation();
    });
    connect(front, &ConfigDeviceBase::error, this, [=](uint8_t request, const QString &text) {
        log.write("error", {{"front", name}, {"request", request}, {"text", text}});
    });
}

bool Driver::runOperation(const QString &operation, QStringList &words)
{
    if (operation == "scan") {
        scan();
        return true;
    }
    if (operation == "scan-until-found") {
        for (scan(); devices.isEmpty(); scan()) {
        }
        return true;
    }
    if (operation == "control") {
        const QByteArray answer =
            sendControlCommand(words.isEmpty() ? QByteArray() : words.takeFirst().toUtf8());
        log.write("control", {{"answer", QString::fromUtf8(answer)}});
        return answer.startsWith("ok");
    }
    const int count = argumentCount(operation);
    if (count < 0 || words.size() < 1 + count) {
        return false;
    }
    const DeviceDescription *device = find(words.takeFirst());
    QStringList arguments;
    for (int i = 0; i < count; ++i) {
        arguments.append(words.takeFirst());
    }
    if (device) {
        runOnDevice(operation, *device, arguments);
    }
    return device != nullptr;
}

void Driver::scan()
{
    devices.clear();
    emit scanner.scan();
    awaitCompletion();
}

void Driver::runOnDevice(const QString &operation, const DeviceDescription &device,
                         const QStringList &arguments)
{
    if (operation == "update") {
        emit updateTask.start(device, arguments.first());
    } else if (operation.startsWith("get")) {
        readRecord(operation, device, arguments);
    } else {
        writeRecord(operation, device, arguments);
    }
    awaitCompletion();
}

void Driver::readRecord(const QString &operation, const DeviceDescription &device,
                        const QStringList &arguments)
{
    if (operation == "get-flags") {
        asking = &flagsAction;
        flagsAction.requestConfigDeviceData<uint8_t>(device, 226, 0, 0);
    } else if (operation == "get-status") {
        asking = &statusAction;
        statusAction.requestConfigDeviceData<InputStatusInfo>(device, 178, 0, 0);
    } else {
        asking = &modeAction;
        modeAction.requestConfigDeviceData<UserMode>(device, 179, number(arguments[0]), 0);
    }
}

void Driver::writeRecord(const QString &operation, const DeviceDescription &device,
                         const QStringList &arguments)
{
    const auto bytes = [&](int at) { return QByteArray::fromHex(arguments[at].toLatin1()); };
    if (operation == "set-flags") {
        send(flagsAction, device, 227, bytes(0), 0);
    } else {
        send(modeAction, device, 179, bytes(1), number(arguments[0]));
    }
}

void Driver::send(ConfigDeviceBase &front, const DeviceDescription &device, uint8_t request,
                  const QByteArray &bytes, uint16_t index)
{
    asking = &front;
    const auto size = uint16_t(bytes.size());
    const ConfigDeviceDataPtr data = makeConfigDeviceData(size);
    std::memcpy(data.data(), bytes.constData(), size);
    emit front.setConfigDeviceData(device, request, data, size, index, 0);
}

// A device of the last scan: "#0" is the first that it found, anything else a serial number.
const DeviceDescription *Driver::find(const QString &target) const
{
    for (int i = 0; i < devices.size(); ++i) {
        if (target == '#' + QString::number(i) || target == devices[i].serialNumber) {
            return &devices[i];
        }
    }
    return nullptr;
}

void Driver::awaitCompletion()
{
    loop.exec();
    asking = nullptr;
    QTimer::singleShot(s_strayMs, &loop, &QEventLoop::quit);
    loop.exec();
}

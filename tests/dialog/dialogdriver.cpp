#include "dialogdriver.h"

#include "qtcompat.h"
#include "usbaccess.h"

#include <QAbstractButton>
#include <QLabel>
#include <QListWidget>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTest>

#include <cstring>
#include <utility>

void prepareWithoutUsb()
{
    usb::set_context_ready(false);
    qRegisterMetaType<DeviceDescription>("DeviceDescription");
    qtcompat::register_alias<unsigned char>("uint8_t");
}

DeviceDescription describedDevice(const QString &productName)
{
    DeviceDescription desc;
    desc.vendorId = 0xE5C1;
    desc.productId = 0x3601;
    desc.busNumber = 1;
    desc.deviceAddress = 7;
    desc.portNumber = 2;
    desc.productName = productName;
    desc.serialNumber = QStringLiteral("A1B2C3D4");
    desc.versionString = QStringLiteral("1.2.3");
    return desc;
}

ConfigDeviceDataPtr configData(const QByteArray &bytes)
{
    ConfigDeviceDataPtr data = makeConfigDeviceData(static_cast<std::size_t>(bytes.size()));
    std::memcpy(data.data(), bytes.constData(), static_cast<std::size_t>(bytes.size()));
    return data;
}

DialogDriver::DialogDriver()
    : scanner(dialog.findChild<DeviceScanner *>()), updateTask(dialog.findChild<UpdateTask *>())
{
    // The scan that the constructor has started.
    QSignalSpy complete(scanner, &DeviceScanner::complete);
    if (!complete.wait()) {
        qFatal("the first scan does not end");
    }

    QObject::disconnect(scanner, &DeviceScanner::scan, nullptr, nullptr);
    QObject::connect(scanner, &DeviceScanner::scan, &dialog,
                     [this] { asked.append(QStringLiteral("scan")); });
    QObject::disconnect(updateTask, &UpdateTask::start, nullptr, nullptr);
    QObject::connect(updateTask, &UpdateTask::start, &dialog,
                     [this](const DeviceDescription &desc, const QString &fileName) {
                         asked.append(
                             QStringLiteral("start %1 %2").arg(desc.productName, fileName));
                     });
    const auto actions = dialog.findChildren<ConfigDeviceAction *>();
    for (ConfigDeviceAction *action : actions) {
        (action->filterRequest(226)   ? flags
         : action->filterRequest(178) ? inputStatus
                                      : userModes) = action;
        takeOver(action);
    }
    if (actions.size() != 3 || !flags || !inputStatus || !userModes) {
        qFatal("the dialog does not have its three configuration actions");
    }
}

void DialogDriver::takeOver(ConfigDeviceAction *action)
{
    const auto line = [](const char *verb, const DeviceDescription &desc, uint8_t request,
                         uint16_t size, uint16_t index, uint16_t value) {
        return QStringLiteral("%1 %2 %3 size %4 index %5 value %6")
            .arg(QLatin1String(verb), QString::number(request), desc.productName,
                 QString::number(size), QString::number(index), QString::number(value));
    };
    QObject::disconnect(action, &ConfigDeviceBase::getConfigDeviceData, nullptr, nullptr);
    QObject::connect(action, &ConfigDeviceBase::getConfigDeviceData, &dialog,
                     [this, line](const DeviceDescription &desc, uint8_t request,
                                  const ConfigDeviceDataPtr &data, uint16_t size, uint16_t index,
                                  uint16_t value) {
                         const QByteArray bytes(reinterpret_cast<const char *>(data.data()), size);
                         asked.append(line("get", desc, request, size, index, value));
                         if (bytes != QByteArray(size, '\0')) {
                             asked.last() += QStringLiteral(" into a buffer that is not zeroed");
                         }
                     });
    QObject::disconnect(action, &ConfigDeviceBase::setConfigDeviceData, nullptr, nullptr);
    QObject::connect(action, &ConfigDeviceBase::setConfigDeviceData, &dialog,
                     [this, line](const DeviceDescription &desc, uint8_t request,
                                  const ConfigDeviceDataPtr &data, uint16_t size, uint16_t index,
                                  uint16_t value) {
                         const QByteArray bytes(reinterpret_cast<const char *>(data.data()), size);
                         asked.append(line("set", desc, request, size, index, value) + u' ' +
                                      QString::fromLatin1(bytes.toHex(' ')));
                     });
}

QString DialogDriver::statusLine()
{
    return find<QLabel>("inputSignalLabel")->text();
}

void DialogDriver::click(const char *objectName)
{
    find<QAbstractButton>(objectName)->click();
}

void DialogDriver::openTab(const char *objectName)
{
    tabs()->setCurrentWidget(find<QWidget>(objectName));
}

void DialogDriver::selectRow(int row)
{
    list()->setCurrentRow(row);
}

void DialogDriver::listDevices(const QStringList &productNames)
{
    click("rescanDevicesButton");
    for (const QString &name : productNames) {
        emit scanner->newDevice(describedDevice(name));
    }
    emit scanner->complete();
    takeAsked();
}

void DialogDriver::pollNow()
{
    QMetaObject::invokeMethod(&dialog, "onInputStatusTimer", Qt::DirectConnection);
}

QStringList DialogDriver::takeAsked()
{
    return std::exchange(asked, {});
}

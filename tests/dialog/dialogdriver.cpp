#include "dialogdriver.h"

#include "qtcompat.h"
#include "requestline.h"
#include "usbaccess.h"

#include <QAbstractButton>
#include <QSignalSpy>
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
    : scanner(dialog.findChild<DeviceScanner *>()),
      updateTask(dialog.findChild<UpdateTask *>()),
      flags(actionFor(0xE2)),
      inputStatus(actionFor(0xB2)),
      modes(actionFor(0xB3))
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
    for (ConfigDeviceAction *action : dialog.findChildren<ConfigDeviceAction *>()) {
        takeOver(action);
    }
}

ConfigDeviceAction *DialogDriver::actionFor(uint8_t request)
{
    for (ConfigDeviceAction *action : dialog.findChildren<ConfigDeviceAction *>()) {
        if (action->filterRequest(request)) {
            return action;
        }
    }
    qFatal("the dialog has no object for request %d", request);
}

void DialogDriver::takeOver(ConfigDeviceAction *action)
{
    QObject::disconnect(action, &ConfigDeviceBase::getConfigDeviceData, nullptr, nullptr);
    QObject::connect(action, &ConfigDeviceBase::getConfigDeviceData, &dialog,
                     [this](const DeviceDescription &desc, uint8_t request,
                            const ConfigDeviceDataPtr &data, uint16_t size, uint16_t index,
                            uint16_t value) {
                         const QByteArray bytes(reinterpret_cast<const char *>(data.data()), size);
                         asked.append(desc.productName + ' ' +
                                      requestLine({Direction::In, request, value, index, size}));
                         if (bytes != QByteArray(size, '\0')) {
                             asked.last() += QStringLiteral(" into a buffer that is not zeroed");
                         }
                     });
    QObject::disconnect(action, &ConfigDeviceBase::setConfigDeviceData, nullptr, nullptr);
    QObject::connect(
        action, &ConfigDeviceBase::setConfigDeviceData, &dialog,
        [this](const DeviceDescription &desc, uint8_t request, const ConfigDeviceDataPtr &data,
               uint16_t size, uint16_t index, uint16_t value) {
            const QByteArray bytes(reinterpret_cast<const char *>(data.data()), size);
            asked.append(desc.productName + ' ' +
                         requestLine({Direction::Out, request, value, index, size}, bytes));
        });
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

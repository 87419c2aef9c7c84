#include "configuration.h"

#include "cli.h"
#include "devicedescription.h"
#include "interrupts.h"
#include "thread.h"

#include <QEventLoop>

#include <cstring>

Configuration::Configuration()
{
    requireThread(task.hasThread());
}

Answer Configuration::read(const DeviceDescription &device, uint8_t request, int size,
                           uint16_t index)
{
    return readOver(0, device, request, size, index);
}

// Of an answer that is too short the record keeps its end as it was filled before. A device whose
// record ends like that by chance is asked once more over another filling.
Answer Configuration::readWhole(const DeviceDescription &device, uint8_t request, int size,
                                uint16_t index)
{
    for (const auto filling : {quint8(0xA5), quint8(0x5A)}) {
        Answer answer = readOver(filling, device, request, size, index);
        if (!answer.succeeded() || quint8(answer.record.back()) != filling) {
            return answer;
        }
    }
    return {{}, Cli::tr("the device's answer to request %1 is too short").arg(request)};
}

Answer Configuration::readOver(quint8 filling, const DeviceDescription &device, uint8_t request,
                               int size, uint16_t index)
{
    const auto send = [&] {
        const ConfigDeviceDataPtr data = makeConfigDeviceData(std::size_t(size));
        std::memset(data.data(), filling, std::size_t(size));
        emit task.getConfigDeviceData(device, request, data, uint16_t(size), index, 0);
    };
    return ask(send);
}

Answer Configuration::write(const DeviceDescription &device, uint8_t request,
                            const QByteArray &record, uint16_t index)
{
    const auto send = [&] {
        const ConfigDeviceDataPtr data = makeConfigDeviceData(std::size_t(record.size()));
        std::memcpy(data.data(), record.constData(), std::size_t(record.size()));
        emit task.setConfigDeviceData(device, request, data, uint16_t(record.size()), index, 0);
    };
    return ask(send);
}

Answer Configuration::ask(const std::function<void()> &request)
{
    Answer answer;
    const Interrupts::Busy busy;
    QEventLoop loop;
    QObject::connect(&task, &ConfigDeviceBase::error, &loop,
                     [&answer](uint8_t, const QString &text) { answer.error = text; });
    QObject::connect(&task, &ConfigDeviceBase::getRequestComplete, &loop,
                     [&](uint8_t, const ConfigDeviceDataPtr &data, uint16_t size) {
                         if (data) {
                             answer.record =
                                 QByteArray(reinterpret_cast<const char *>(data.data()), size);
                         }
                         loop.quit();
                     });
    QObject::connect(&task, &ConfigDeviceBase::setRequestComplete, &loop, &QEventLoop::quit);
    request();
    loop.exec();
    return answer;
}

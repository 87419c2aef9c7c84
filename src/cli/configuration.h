#pragma once

#include "configdevicetask.h"

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <cstring>
#include <functional>

class DeviceDescription;

// What a configuration request came to.
struct Answer
{
    QByteArray record; // of a read that succeeded, in the length that was asked for
    QString error;     // the module's own text; empty: the request succeeded

    bool succeeded() const { return error.isEmpty(); }

    // Of a read that succeeded in the length of such a record.
    template<typename Record> Record as() const
    {
        Record result;
        std::memcpy(&result, record.constData(), sizeof(Record));
        return result;
    }
};

// Configuration requests one after another, each of which is waited for. Throws where the system
// gives no thread for them.
class Configuration
{
public:
    Configuration();

    // Where the device sends less than the record, or nothing, the rest is 0, as the dialog has it.
    template<typename Record>
    Answer read(const DeviceDescription &device, uint8_t request, uint16_t index = 0)
    {
        return read(device, request, sizeof(Record), index);
    }
    // Where the device sends less than the record, the read has failed: what is to be changed and
    // written back must not be made up.
    template<typename Record>
    Answer readWhole(const DeviceDescription &device, uint8_t request, uint16_t index = 0)
    {
        return readWhole(device, request, sizeof(Record), index);
    }
    Answer write(const DeviceDescription &device, uint8_t request, const QByteArray &record,
                 uint16_t index = 0);

private:
    Answer read(const DeviceDescription &device, uint8_t request, int size, uint16_t index);
    Answer readWhole(const DeviceDescription &device, uint8_t request, int size, uint16_t index);
    Answer readOver(quint8 filling, const DeviceDescription &device, uint8_t request, int size,
                    uint16_t index);
    Answer ask(const std::function<void()> &request);

    ConfigDeviceTask task;
};

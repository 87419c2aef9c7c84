#pragma once

#include <QByteArray>
#include <QString>

// What can go wrong with one control transfer.
enum class Fault { Stall, Silence, Disconnect, Io, Overflow, Short, Wrong };

constexpr Fault s_faults[] = {Fault::Stall,    Fault::Silence, Fault::Disconnect, Fault::Io,
                              Fault::Overflow, Fault::Short,   Fault::Wrong};

// How libusb tells of a fault, and how it stands at the end of a line of the transcript.
struct FaultFacts
{
    const char *title;
    const char *scene; // the simulator's word; "" where it depends on the transfer
    int code;          // 0: libusb calls the transfer a success
    const char *name;
    const char *wire;
};

const FaultFacts &factsOf(Fault fault);

// The device has not seen the request, and the program is told so.
inline bool isError(Fault fault)
{
    return factsOf(fault).code != 0;
}

#pragma once

#include <QByteArray>
#include <QString>

// What can go wrong with one control transfer. After the deed: the device has done what it was
// told, and only its answer is lost.
enum class Fault {
    Stall,
    Silence,
    Disconnect,
    Io,
    Overflow,
    Short,
    Wrong,
    StallAfter,
    SilenceAfter,
    DisconnectAfter,
    IoAfter,
    OverflowAfter,
};

constexpr Fault s_faults[] = {
    Fault::Stall,        Fault::Silence,         Fault::Disconnect, Fault::Io,
    Fault::Overflow,     Fault::Short,           Fault::Wrong,      Fault::StallAfter,
    Fault::SilenceAfter, Fault::DisconnectAfter, Fault::IoAfter,    Fault::OverflowAfter};

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

// The program is told that the request has failed.
inline bool isError(Fault fault)
{
    return factsOf(fault).code != 0;
}

inline bool isAfterTheDeed(Fault fault)
{
    return fault >= Fault::StallAfter;
}

// The device leaves the bus.
inline bool isDeparture(Fault fault)
{
    return fault == Fault::Disconnect || fault == Fault::DisconnectAfter;
}

#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

// What one simulated device saw, in order, each thing as one short line of text that a test can
// write down and compare:
//
//   "> c6 v0 i0 4096 7f31..(20 hex digits)"  a vendor OUT request: bRequest, wValue, wIndex,
//   wLength
//                                      (wValue and wIndex hexadecimal), and the data: in full up to
//                                      16 bytes, else its SHA-1, see showBytes()
//   "< c8 v0 i0 1 01"                  a vendor IN request with what the device answered
//   "string 3"                         reading string descriptor 3
//   "open", "close", "claim 0 ok", "release 0 ok", "driver-detach 0 ok", "driver-attach 0 busy",
//   "plug e5c1:3601 normal", "unplug", "start 40000000 accepted", "power-cycle", "violation ..."
//
// A transfer that did not end well has its status at the end: "> c5 v0 i0 0 stall".
struct SimLine
{
    enum Kind {
        Vendor,   // a vendor request
        Standard, // any other control transfer
        Handle,   // open, claim, detach, attach, release, close
        Presence, // plug, unplug, start, power-cycle
        Violation,
    };
    Kind kind;
    QString text;
    double time; // milliseconds since the simulator started
    int address; // of the device at that moment
    int file;    // number of the open file for a Handle line, else 0
};

class SimTranscript
{
public:
    // Reads a transcript that was written with `transcript full`.
    static SimTranscript fromFile(const QString &path);

    // The lines of one device, of these kinds or of all of them.
    QVector<SimLine> lines(const QString &device) const;
    QStringList texts(const QString &device) const;
    QStringList texts(const QString &device, QVector<SimLine::Kind> kinds) const;

    // Vendor requests and what was done with the file, which is what most tests want to see.
    QStringList work(const QString &device) const
    {
        return texts(device, {SimLine::Vendor, SimLine::Handle});
    }

    // Empty when every open file was closed, and every claim that succeeded was given back before;
    // else what is wrong.
    QString unbalanced(const QString &device) const;

private:
    struct Entry
    {
        QString device;
        SimLine line;
    };
    QVector<Entry> entries;
};

// How the lines above show data.
QString showBytes(const QByteArray &bytes);

#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

// What one simulated device saw, in order, each thing as one short line of text that a test can
// write down and compare:
//
//   "> c6 v0 i0 4096 sha1:7f31.."      a vendor request, see requestline.h
//   "string 3"                         reading string descriptor 3
//   "open", "close", "claim 0 ok", "release 0 ok", "driver-detach 0 ok", "driver-attach 0 busy",
//   "plug e5c1:3601 normal", "unplug", "start 40000000 accepted", "power-cycle", "violation ..."
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
    double time;  // milliseconds since the simulator started
    int address;  // of the device at that moment
    int file;     // number of the open file for a Handle line, else 0
    bool faulted; // a fault of the scene made it so
};

class SimTranscript
{
public:
    // Reads a transcript, also one that is still growing. Without `transcript full` in the scene,
    // a request with more than 64 bytes has no data here.
    static SimTranscript fromFile(const QString &path);

    // How many lines there are in all: a mark for since().
    int size() const { return int(entries.size()); }
    // The lines that came after the mark.
    SimTranscript since(int mark) const;

    // The lines of one device, of these kinds or of all of them.
    QVector<SimLine> lines(const QString &device) const;
    QStringList texts(const QString &device) const;
    QStringList texts(const QString &device, const QVector<SimLine::Kind> &kinds) const;

    // Vendor requests and what was done with the file, which is what most tests want to see.
    QStringList work(const QString &device) const
    {
        return texts(device, {SimLine::Vendor, SimLine::Handle});
    }
    QStringList requests(const QString &device) const { return texts(device, {SimLine::Vendor}); }
    // How many of the device's lines begin with this word.
    int count(const QString &device, const QString &word) const;

    // The vendor requests of all devices in their order: "grabber < c8 v0 i0 1 01".
    QStringList requestsOfAll() const;
    // The devices in the order in which each was opened for the first time.
    QStringList devicesOpened() const;

    // Empty when every open file was closed, and every claim that succeeded was given back before;
    // else what is wrong.
    QString unbalanced(const QString &device) const;
    // Empty when that is so for every device and no claim was refused (but by a fault), which is
    // what happens to whoever comes while somebody else is at work on the device.
    QString misused() const;

private:
    struct Entry
    {
        QString device;
        SimLine line;
    };
    QVector<Entry> entries;
};

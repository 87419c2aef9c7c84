#pragma once

#include "products.h"

#include <QList>
#include <QStringList>

// Writes down what a device must see, in the lines of simtranscript.h. Request codes, lengths and
// order stand here as literals, apart from the program's own, so that each can catch the other.
class WireModel
{
public:
    // Zero answers that the device gives to a status poll after each start and each block.
    explicit WireModel(int busyPolls = 3) : busy(busyPolls) {}

    WireModel &line(const QString &text);

    WireModel &openForWork(); // open and claim
    WireModel &giveBack(); // the kernel driver first (in vain), then the interface, then the file
    WireModel &probe();    // of a running product, less the strings

    WireModel &microcode(const QByteArray &image);
    WireModel &bitstream(const ProductFacts &product, const QByteArray &image);
    WireModel &edid(const QByteArray &bytes);
    // All images that there are, in the order of a regular update.
    WireModel &regularUpdate(const ProductFacts &product, const Images &images);
    // The sections of a sandbox image, each piece written and read back; and its start.
    WireModel &loadSandbox(const Images &images);
    WireModel &startAt(quint32 address);

    WireModel &command(int request);
    WireModel &block(int request, const QByteArray &data);
    WireModel &poll(int request, int answer);
    WireModel &polls(int request); // until it is ready
    WireModel &piece(quint32 address, const QByteArray &data);

    const QStringList &lines() const { return text; }

private:
    WireModel &blocks(int writeRequest, int statusRequest, const QByteArray &image);

    int busy;
    QStringList text;
};

// Progress values of one image sent in blocks of 4096 bytes, between two percentages.
QList<int> blockProgress(int from, int to, int size);

// Signals of a whole update in the lines of simrun.h: these percentages, and the completion.
QStringList goodUpdate(const QList<int> &progress);

// The standard CRC-32 (polynomial 0xEDB88320, reflected), bit by bit.
quint32 crc32Of(const QByteArray &bytes);

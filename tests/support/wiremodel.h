#pragma once

#include "products.h"
#include "requestline.h"

#include <QList>
#include <QStringList>

class Script;

// Writes down what a device must see, in the lines of simtranscript.h.
class WireModel
{
public:
    // Zero answers that the device gives to a status poll after each start and each block.
    explicit WireModel(int busyPolls = 3) : busy(busyPolls) {}

    WireModel &line(const QString &text);
    WireModel &request(const Request &request, const QByteArray &data = {});
    WireModel &poll(int code, int answer); // the device says that it is busy (0) or ready (1)

    WireModel &openForWork(); // open and claim
    WireModel &giveBack(); // the kernel driver first (in vain), then the interface, then the file
    WireModel &probe();    // of a running product, less the strings

    WireModel &edid(const QByteArray &bytes);
    // All images that there are, in the order of a regular update.
    WireModel &regularUpdate(const ProductFacts &product, const Images &images);
    // The sections of a sandbox image, each piece written and read back; and its start.
    WireModel &loadSandbox(const Images &images);
    WireModel &startAt(quint32 address);
    // A boot loader's repair, from its opening to the end.
    WireModel &repair(const ProductFacts &product, const Images &images);

    const QStringList &lines() const { return text; }

private:
    WireModel &steps(const Script &script);

    int busy;
    QStringList text;
};

// Signals of a whole update in the lines of simrun.h: these percentages, and the completion.
QStringList goodUpdate(const QList<int> &progress);

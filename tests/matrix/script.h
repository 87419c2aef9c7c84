#pragma once

#include "products.h"

#include <QByteArray>
#include <QList>
#include <QStringList>

#include <vector>

// What a transfer is for, which decides what follows from its failure.
enum class Role {
    Fx3Start,
    Fx3Poll,
    Fx3Block,
    Fx3Complete,
    FpgaStart,
    FpgaPoll,
    FpgaHeader,
    FpgaBlock,    // of a bitstream that is framed by a header and a CRC
    FpgaRawBlock, // of one that is not
    FpgaCrc,
    FpgaComplete,
    EdidStart,
    EdidData,
    EdidComplete,
    PieceWrite,
    PieceRead,
    SandboxStart,
    LanguageString, // comes before every string: which language to ask for
    ProductString,
    SerialString,
    VersionString,
    Ping,
    ReadFlags,
    WriteFlags,
    ReadMode,
    WriteMode,
    ReadStatus,
};

// A value of the progress bar. Within an image it counts the bytes that went through.
struct Progress
{
    int from;
    int to = 0;
    qint64 sent = 0;
    qint64 size = 0;         // 0: `from` itself
    Role block = Role::Ping; // whose bytes these are

    int value(qint64 missing = 0) const
    {
        return size == 0 ? from : int(from + (to - from) * (sent - missing) / size);
    }
};

// One control transfer of an operation in which nothing goes wrong.
struct Step
{
    Role role;
    QString line;    // in the form of simtranscript.h
    QByteArray data; // what the program sends, or what the device answers
    bool in;
    std::vector<Progress> before; // the signals since the transfer before this one
    QStringList handles;          // what is done with the device's file since then
    int request;                  // bRequest; for a string descriptor GET_DESCRIPTOR
    QByteArray wrong;             // an answer that is none; empty: every bit the other way round
};

// An operation in which nothing goes wrong, transfer by transfer. It is written down here by hand:
// the program's transcript must first equal it.
class Script
{
public:
    std::vector<Step> steps;
    std::vector<Progress> rest; // the signals after the last transfer

    // A regular update of whatever images there are, with the progress from this percentage on.
    // `busyPolls`: how often the device answers that it is busy.
    void regularUpdate(const ProductFacts &product, const Images &images, int progressFrom,
                       int busyPolls);
    // The sandbox is loaded and started; the update follows in it.
    void repair(const ProductFacts &product, const Images &images, int busyPolls);

    void add(Role role, int request, const QString &line, const QByteArray &data, bool in);
    void progress(const Progress &value) { rest.push_back(value); }

private:
    void microcode(const QByteArray &image, int from, int to);
    void bitstream(const ProductFacts &product, const QByteArray &image, int from, int to);
    void edid(const QByteArray &bytes, int from, int to);
    void blocks(Role role, int request, Role poll, int pollRequest, const QByteArray &image,
                int from, int to);
    void sandbox(const Images &images);
    void command(Role role, int request);
    void polls(Role role, int request);
    void poll(Role role, int request, int answer);

    int busy = 0;
};

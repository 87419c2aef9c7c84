#pragma once

#include "products.h"
#include "requestline.h"

#include <QByteArray>
#include <QList>
#include <QStringList>

#include <vector>

constexpr int BlockSize = 4096; // bytes of an image that travel at once

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
    Configuration, // a record that is read or written
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
    QString line;    // in the form of requestline.h, or "string 3"
    QByteArray data; // what the program sends, or what the device answers
    bool in;
    std::vector<Progress> before; // the signals since the transfer before this one
    QStringList handles;          // what is done with the device's file since then
    Request request;              // for a string descriptor GET_DESCRIPTOR
    QByteArray wrong;             // an answer that is none; empty: every bit the other way round
};

// An operation in which nothing goes wrong, transfer by transfer, with the progress that is
// signalled around it. Request codes, lengths and order stand here by hand, apart from the
// program's own, so that each can catch the other; the program's transcript must first equal it.
class Script
{
public:
    // `busyPolls`: how often the device answers that it is busy after each start and each block.
    explicit Script(int busyPolls = 0) : busy(busyPolls) {}

    std::vector<Step> steps;
    std::vector<Progress> rest; // the signals after the last transfer

    // A regular update of whatever images there are, with the progress from this percentage on.
    void regularUpdate(const ProductFacts &product, const Images &images, int progressFrom);
    // The sandbox is loaded and started; the update follows in it.
    void repair(const ProductFacts &product, const Images &images);

    // Parts of these; progress goes from one percentage to another.
    void microcode(const QByteArray &image, int from, int to);
    void bitstream(const ProductFacts &product, const QByteArray &image, int from, int to);
    void edid(const QByteArray &bytes, int from, int to);
    void loadSandbox(const Images &images);
    void startSandbox(quint32 address);

    // One more transfer: a vendor request with what is sent or answered, or a string descriptor.
    void add(Role role, const Request &request, const QByteArray &data = {});
    void addString(Role role, int number, const QByteArray &descriptor);
    void progress(const Progress &value) { rest.push_back(value); }

    // The progress from the first transfer to the end.
    QList<int> progressValues() const;

private:
    void framedBitstream(const QByteArray &image, int from, int to);
    void blocks(Role role, int code, Role pollRole, int pollCode, const QByteArray &image, int from,
                int to);
    void command(Role role, int code);
    void send(Role role, int code, const QByteArray &data);
    void polls(Role role, int code);

    int busy;
};

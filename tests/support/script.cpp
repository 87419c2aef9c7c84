#include "script.h"

#include "wiremodel.h"

namespace {

constexpr int s_getDescriptor = 6;

// A request that carries a 32-bit address: wValue low, wIndex high.
Request memoryAccess(Direction direction, quint32 address, int length)
{
    return {direction, 0xA0, int(address & 0xFFFF), int(address >> 16), length};
}

} // namespace

// ---- one transfer

void Script::add(Role role, const Request &request, const QByteArray &data)
{
    const bool in = request.direction == Direction::In;
    steps.push_back({role, requestLine(request, data), data, in, rest, {}, request, {}});
    rest.clear();
}

void Script::addString(Role role, int number, const QByteArray &descriptor)
{
    const QString line = QString("string %1").arg(number);
    const Request request{Direction::In, s_getDescriptor, 0x300 + number};
    steps.push_back({role, line, descriptor, true, rest, {}, request, {}});
    rest.clear();
}

void Script::command(Role role, int code)
{
    add(role, {Direction::Out, code});
}

void Script::send(Role role, int code, const QByteArray &data)
{
    add(role, {Direction::Out, code, 0, 0, int(data.size())}, data);
}

void Script::polls(Role role, int code)
{
    for (int i = 0; i < busy; ++i) {
        add(role, {Direction::In, code, 0, 0, 1}, QByteArray(1, 0));
    }
    add(role, {Direction::In, code, 0, 0, 1}, QByteArray(1, 1));
}

QList<int> Script::progressValues() const
{
    QList<int> values;
    for (const Step &step : steps) {
        for (const Progress &progress : step.before) {
            values.append(progress.value());
        }
    }
    for (const Progress &progress : rest) {
        values.append(progress.value());
    }
    return values;
}

// ---- a regular update

void Script::regularUpdate(const ProductFacts &product, const Images &images, int progressFrom)
{
    const int imageSteps = images.fx3.isEmpty() ? 0 : 2;
    const int share = (100 - progressFrom) / (imageSteps + (images.edid.isEmpty() ? 0 : 1));
    int at = progressFrom;
    if (imageSteps > 0) {
        microcode(images.fx3, at, at + share);
        bitstream(product, images.fpga, at + share, at + 2 * share);
        at += 2 * share;
    }
    if (!images.edid.isEmpty()) {
        edid(images.edid, at, at + share);
    }
}

void Script::microcode(const QByteArray &image, int from, int to)
{
    command(Role::Fx3Start, 0xC5);
    polls(Role::Fx3Poll, 0xC8);
    blocks(Role::Fx3Block, 0xC6, Role::Fx3Poll, 0xC8, image, from, to);
    command(Role::Fx3Complete, 0xC7);
}

void Script::bitstream(const ProductFacts &product, const QByteArray &image, int from, int to)
{
    command(Role::FpgaStart, 0xC1);
    polls(Role::FpgaPoll, 0xC4);
    switch (product.fpgaVersion) {
    case FpgaVersion::Framed:
        framedBitstream(image, from, to);
        break;
    case FpgaVersion::Raw:
        blocks(Role::FpgaRawBlock, 0xC2, Role::FpgaPoll, 0xC4, image, from, to);
        break;
    }
    command(Role::FpgaComplete, 0xC3);
}

void Script::framedBitstream(const QByteArray &image, int from, int to)
{
    const QByteArray header = "FPGA" + le32(quint32(image.size()));
    send(Role::FpgaHeader, 0xC2, header + le32(crc32Of(header)));
    blocks(Role::FpgaBlock, 0xC2, Role::FpgaPoll, 0xC4, image, from, to);
    send(Role::FpgaCrc, 0xC2, le32(crc32Of(image)));
    polls(Role::FpgaPoll, 0xC4);
}

void Script::blocks(Role role, int code, Role pollRole, int pollCode, const QByteArray &image,
                    int from, int to)
{
    for (int at = 0; at < image.size(); at += BlockSize) {
        const QByteArray block = image.mid(at, BlockSize);
        send(role, code, block);
        progress({from, to, at + block.size(), image.size(), role});
        polls(pollRole, pollCode);
    }
}

// Five fifths of its share: the text is read, each of the three requests is due, all is done.
void Script::edid(const QByteArray &bytes, int from, int to)
{
    const int fifth = (to - from) / 5;
    progress({from + fifth});
    progress({from + 2 * fifth});
    command(Role::EdidStart, 0xCF);
    progress({from + 3 * fifth});
    // The length of a transfer is a number of 16 bits.
    send(Role::EdidData, 0xD2, bytes.left(bytes.size() & 0xFFFF));
    progress({from + 4 * fifth});
    command(Role::EdidComplete, 0xD4);
    progress({from + 5 * fifth});
}

// ---- repair

void Script::repair(const ProductFacts &product, const Images &images)
{
    loadSandbox(images);
    startSandbox(images.entry);
    const std::size_t first = steps.size();
    regularUpdate(product, images, 15);
    // The boot loader has left by the time that its file is given back; libusb knows, and does not
    // even try to attach a kernel driver. Then the sandbox is opened.
    steps[first].handles =
        QStringList{"release 0 no-device", "close"} + WireModel().openForWork().lines();
}

void Script::loadSandbox(const Images &images)
{
    const qint64 imageSize = images.sandbox().size();
    qint64 consumed = 0;
    for (const BootSection &section : images.sections) {
        consumed += section.data.size();
        progress({int(consumed * 13 / imageSize + 2)});
        for (int at = 0; at < section.data.size(); at += BlockSize) {
            const QByteArray data = section.data.mid(at, BlockSize);
            const quint32 address = section.address + quint32(at);
            add(Role::PieceWrite, memoryAccess(Direction::Out, address, int(data.size())), data);
            add(Role::PieceRead, memoryAccess(Direction::In, address, int(data.size())), data);
        }
    }
}

void Script::startSandbox(quint32 address)
{
    add(Role::SandboxStart, memoryAccess(Direction::Out, address, 0));
}

#include "script.h"

#include "wiremodel.h"

namespace {

constexpr int BlockSize = 4096;

QString single(const WireModel &model)
{
    return model.lines().first();
}

} // namespace

void Script::add(Role role, int request, const QString &line, const QByteArray &data, bool in)
{
    steps.push_back({role, line, data, in, rest, {}, request, {}});
    rest.clear();
}

// ---- a regular update

void Script::regularUpdate(const ProductFacts &product, const Images &images, int progressFrom,
                           int busyPolls)
{
    busy = busyPolls;
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
    if (product.framed) {
        QByteArray header = "FPGA" + le32(quint32(image.size()));
        header += le32(crc32Of(header));
        add(Role::FpgaHeader, 0xC2, single(WireModel().block(0xC2, header)), header, false);
    }
    blocks(product.framed ? Role::FpgaBlock : Role::FpgaRawBlock, 0xC2, Role::FpgaPoll, 0xC4, image,
           from, to);
    if (product.framed) {
        const QByteArray crc = le32(crc32Of(image));
        add(Role::FpgaCrc, 0xC2, single(WireModel().block(0xC2, crc)), crc, false);
        polls(Role::FpgaPoll, 0xC4);
    }
    command(Role::FpgaComplete, 0xC3);
}

void Script::blocks(Role role, int request, Role pollRole, int pollRequest, const QByteArray &image,
                    int from, int to)
{
    for (int at = 0; at < image.size(); at += BlockSize) {
        const QByteArray block = image.mid(at, BlockSize);
        add(role, request, single(WireModel().block(request, block)), block, false);
        progress({from, to, at + block.size(), image.size(), role});
        polls(pollRole, pollRequest);
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
    const QByteArray sent = bytes.left(bytes.size() & 0xFFFF);
    add(Role::EdidData, 0xD2, single(WireModel().block(0xD2, sent)), sent, false);
    progress({from + 4 * fifth});
    command(Role::EdidComplete, 0xD4);
    progress({from + 5 * fifth});
}

void Script::command(Role role, int request)
{
    add(role, request, single(WireModel().command(request)), {}, false);
}

void Script::polls(Role role, int request)
{
    for (int i = 0; i < busy; ++i) {
        poll(role, request, 0);
    }
    poll(role, request, 1);
}

void Script::poll(Role role, int request, int answer)
{
    add(role, request, single(WireModel().poll(request, answer)), QByteArray(1, char(answer)),
        true);
}

// ---- repair

void Script::repair(const ProductFacts &product, const Images &images, int busyPolls)
{
    sandbox(images);
    const std::size_t first = steps.size();
    regularUpdate(product, images, 15, busyPolls);
    // The boot loader has left by the time that its file is given back; libusb knows, and does not
    // even try to attach a kernel driver. Then the sandbox is opened.
    steps[first].handles =
        QStringList{"release 0 no-device", "close"} + WireModel().openForWork().lines();
}

void Script::sandbox(const Images &images)
{
    const qint64 imageSize = images.sandbox().size();
    qint64 consumed = 0;
    for (const BootSection &section : images.sections) {
        consumed += section.data.size();
        progress({int(consumed * 13 / imageSize + 2)});
        for (int at = 0; at < section.data.size(); at += BlockSize) {
            const QByteArray data = section.data.mid(at, BlockSize);
            const WireModel piece = WireModel().piece(section.address + quint32(at), data);
            add(Role::PieceWrite, 0xA0, piece.lines().at(0), data, false);
            add(Role::PieceRead, 0xA0, piece.lines().at(1), data, true);
        }
    }
    add(Role::SandboxStart, 0xA0, single(WireModel().startAt(images.entry)), {}, false);
}

#include "wiremodel.h"

#include "simtranscript.h"

namespace {

constexpr int BlockSize = 4096;

QString out(int request, const QByteArray &data = {})
{
    QString line = QString("> %1 v0 i0 %2").arg(request, 0, 16).arg(data.size());
    return data.isEmpty() ? line : line + ' ' + showBytes(data);
}

QString addressed(const char *direction, quint32 address, const QByteArray &data)
{
    QString line = QString("%1 a0 v%2 i%3 %4")
                       .arg(direction)
                       .arg(address & 0xFFFF, 0, 16)
                       .arg(address >> 16, 0, 16)
                       .arg(data.size());
    return data.isEmpty() ? line : line + ' ' + showBytes(data);
}

} // namespace

WireModel &WireModel::line(const QString &line)
{
    text.append(line);
    return *this;
}

WireModel &WireModel::openForWork()
{
    return line("open").line("claim 0 ok");
}

WireModel &WireModel::giveBack()
{
    return line("driver-attach 0 busy").line("release 0 ok").line("close");
}

WireModel &WireModel::probe()
{
    return openForWork().line("< c8 v0 i0 1 01").giveBack();
}

WireModel &WireModel::command(int request)
{
    return line(out(request));
}

WireModel &WireModel::block(int request, const QByteArray &data)
{
    return line(out(request, data));
}

WireModel &WireModel::poll(int request, int answer)
{
    return line(QString("< %1 v0 i0 1 0%2").arg(request, 0, 16).arg(answer));
}

WireModel &WireModel::polls(int request)
{
    for (int i = 0; i < busy; ++i) {
        poll(request, 0);
    }
    return poll(request, 1);
}

WireModel &WireModel::blocks(int writeRequest, int statusRequest, const QByteArray &image)
{
    for (int at = 0; at < image.size(); at += BlockSize) {
        block(writeRequest, image.mid(at, BlockSize)).polls(statusRequest);
    }
    return *this;
}

WireModel &WireModel::microcode(const QByteArray &image)
{
    return command(0xC5).polls(0xC8).blocks(0xC6, 0xC8, image).command(0xC7);
}

WireModel &WireModel::bitstream(const ProductFacts &product, const QByteArray &image)
{
    command(0xC1).polls(0xC4);
    if (!product.framed) {
        return blocks(0xC2, 0xC4, image).command(0xC3);
    }
    const QByteArray head = QByteArray("FPGA") + le32(quint32(image.size()));
    block(0xC2, head + le32(crc32Of(head)));
    blocks(0xC2, 0xC4, image);
    return block(0xC2, le32(crc32Of(image))).polls(0xC4).command(0xC3);
}

WireModel &WireModel::edid(const QByteArray &bytes)
{
    return command(0xCF).block(0xD2, bytes).command(0xD4);
}

WireModel &WireModel::regularUpdate(const ProductFacts &product, const Images &images)
{
    microcode(images.fx3).bitstream(product, images.fpga);
    return images.edid.isEmpty() ? *this : edid(images.edid);
}

WireModel &WireModel::piece(quint32 address, const QByteArray &data)
{
    return line(addressed(">", address, data)).line(addressed("<", address, data));
}

WireModel &WireModel::loadSandbox(const Images &images)
{
    for (const BootSection &section : images.sections) {
        for (int at = 0; at < section.data.size(); at += BlockSize) {
            piece(section.address + quint32(at), section.data.mid(at, BlockSize));
        }
    }
    return *this;
}

WireModel &WireModel::startAt(quint32 address)
{
    return line(addressed(">", address, {}));
}

QList<int> blockProgress(int from, int to, int size)
{
    QList<int> values;
    for (qint64 sent = BlockSize; sent < size + BlockSize; sent += BlockSize) {
        values.append(int(from + (to - from) * qMin(sent, qint64(size)) / size));
    }
    return values;
}

QStringList goodUpdate(const QList<int> &progress)
{
    QStringList lines;
    for (const int value : progress) {
        lines.append(QString("progress %1").arg(value));
    }
    return lines + QStringList{"complete"};
}

quint32 crc32Of(const QByteArray &bytes)
{
    quint32 crc = 0xFFFFFFFF;
    for (const char byte : bytes) {
        crc ^= quint8(byte);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1) != 0 ? crc >> 1 ^ 0xEDB88320 : crc >> 1;
        }
    }
    return ~crc;
}

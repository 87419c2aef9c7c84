#include "packagebuilder.h"

#include <QFile>

#include <zlib.h>

namespace {

constexpr quint16 s_deflateMethod = 8;
constexpr quint16 s_encryptedFlag = 0x0001;

QByteArray le16(quint16 number)
{
    QByteArray bytes;
    bytes.append(static_cast<char>(number & 0xFF));
    bytes.append(static_cast<char>(number >> 8));
    return bytes;
}

QByteArray deflated(const QByteArray &data)
{
    z_stream stream{};
    if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) !=
        Z_OK) {
        qFatal("zlib cannot deflate");
    }
    QByteArray out(static_cast<int>(deflateBound(&stream, static_cast<uLong>(data.size()))),
                   Qt::Uninitialized);
    QByteArray in = data;
    stream.next_in = reinterpret_cast<Bytef *>(in.data());
    stream.avail_in = static_cast<uInt>(in.size());
    stream.next_out = reinterpret_cast<Bytef *>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    if (deflate(&stream, Z_FINISH) != Z_STREAM_END) {
        qFatal("zlib cannot deflate");
    }
    out.truncate(static_cast<int>(stream.total_out));
    deflateEnd(&stream);
    return out;
}

// The part that an entry's local header and its central directory record share.
QByteArray commonHeader(const PackageEntry &entry, int packedSize)
{
    const auto trueCrc = crc32(0, reinterpret_cast<const Bytef *>(entry.data.constData()),
                               static_cast<uInt>(entry.data.size()));
    const quint16 timeAndDate = 0x21; // 1 January 1980
    QByteArray header;
    header += le16(20);
    header += le16(entry.encrypted ? s_encryptedFlag : 0);
    header += le16(entry.deflated ? s_deflateMethod : 0);
    header += le16(0);
    header += le16(timeAndDate);
    header += le32(entry.statedCrc.value_or(static_cast<quint32>(trueCrc)));
    header += le32(static_cast<quint32>(packedSize));
    header += le32(entry.statedSize.value_or(static_cast<quint32>(entry.data.size())));
    header += le16(static_cast<quint16>(entry.name.size()));
    header += le16(0);
    return header;
}

QByteArray packedData(const PackageEntry &entry)
{
    QByteArray packed = entry.deflated ? deflated(entry.data) : entry.data;
    for (int i = 0; i < entry.damagedBytes; ++i) {
        packed[packed.size() / 2 + i] = '\xFF';
    }
    if (entry.encrypted) {
        packed.prepend(QByteArray(12, 'x')); // the encryption header
    }
    return packed;
}

} // namespace

QByteArray le32(quint32 number)
{
    return le16(static_cast<quint16>(number & 0xFFFF)) + le16(static_cast<quint16>(number >> 16));
}

QByteArray zipArchive(const std::vector<PackageEntry> &entries)
{
    QByteArray archive;
    QByteArray directory;
    for (const PackageEntry &entry : entries) {
        const int offset = int(archive.size());
        const QByteArray packed = packedData(entry);
        const QByteArray common = commonHeader(entry, int(packed.size()));
        archive += "PK\x03\x04" + common + entry.name + packed;
        directory += QByteArray("PK\x01\x02") + le16(20) + common;
        directory += le16(0) + le16(0) + le16(0) + le32(0) + le32(static_cast<quint32>(offset));
        directory += entry.name;
    }
    const quint16 count = static_cast<quint16>(entries.size());
    const int directoryOffset = int(archive.size());
    archive += directory;
    archive += QByteArray("PK\x05\x06") + le16(0) + le16(0) + le16(count) + le16(count);
    archive += le32(static_cast<quint32>(directory.size()));
    archive += le32(static_cast<quint32>(directoryOffset)) + le16(0);
    return archive;
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size()) {
        qFatal("cannot write %s", qPrintable(path));
    }
}

QByteArray patternBytes(int count, quint32 seed)
{
    QByteArray bytes(count, Qt::Uninitialized);
    quint32 state = seed * 2654435761U + 1;
    for (char &byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

QByteArray edidText(const QByteArray &edid)
{
    QByteArray text =
        "EDID of a test\n     0  1  2  3  4  5  6  7  8  9  A  B  C  D  E  F\n-----\n";
    for (int offset = 0; offset < edid.size(); offset += 16) {
        text += "0x" + QByteArray::number(offset, 16) + " |";
        for (const char byte : edid.mid(offset, 16)) {
            text += ' ' + QByteArray(1, byte).toHex();
        }
        text += '\n';
    }
    return text;
}

QByteArray edidBlocks(int count)
{
    QByteArray edid;
    for (int block = 0; block < count; ++block) {
        QByteArray bytes = patternBytes(127, static_cast<quint32>(block + 7));
        int sum = 0;
        for (const char byte : qAsConst(bytes)) {
            sum += static_cast<quint8>(byte);
        }
        edid += bytes + static_cast<char>(-sum);
    }
    return edid;
}

QByteArray bootImage(const std::vector<BootSection> &sections, quint32 entryAddress)
{
    QByteArray image = QByteArray("CY") + '\x1C' + '\xB0';
    quint32 checksum = 0;
    for (const BootSection &section : sections) {
        image += le32(static_cast<quint32>(section.data.size() / 4)) + le32(section.address);
        image += section.data;
        for (int i = 0; i < section.data.size(); ++i) {
            checksum += static_cast<quint32>(static_cast<quint8>(section.data[i])) << (i % 4 * 8);
        }
    }
    return image + le32(0) + le32(entryAddress) + le32(checksum);
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

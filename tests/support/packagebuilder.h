#pragma once

#include <QByteArray>
#include <QString>

#include <optional>
#include <vector>

// One entry of a ZIP archive made for a test. The archive is written byte by byte here rather than
// by libzip, so that an entry can also lie about itself.
struct PackageEntry
{
    QByteArray name;
    QByteArray data;
    bool deflated = false;
    // Flagged as encrypted: libzip asks for a password that nobody has.
    bool encrypted = false;
    // Uncompressed size and CRC-32 as the archive states them, when they are not to be the true
    // ones.
    std::optional<quint32> statedSize = std::nullopt;
    std::optional<quint32> statedCrc = std::nullopt;
    // Overwrites this many bytes in the middle of the stored (or deflated) data with 0xFF.
    int damagedBytes = 0;
};

// The bytes of an archive with these entries, in this order.
QByteArray zipArchive(const std::vector<PackageEntry> &entries);

// Writes a file; the test stops (qFatal) when that is impossible.
void writeFile(const QString &path, const QByteArray &bytes);

// Bytes that do not repeat with any block size, so that a lost, doubled or swapped block shows.
QByteArray patternBytes(int count, quint32 seed = 1);

// An EDID text file: three header lines, then a line for each 16 bytes.
QByteArray edidText(const QByteArray &edid);

// The given number of 128-byte EDID blocks, each with a right checksum.
QByteArray edidBlocks(int count);

// A section of a boot image; the data's length is a multiple of 4.
struct BootSection
{
    quint32 address;
    QByteArray data;
};

// A boot image: "CY", control and type bytes, the sections, the entry record and the right
// checksum.
QByteArray bootImage(const std::vector<BootSection> &sections, quint32 entryAddress);

// Little-endian 32-bit number.
QByteArray le32(quint32 number);

// The standard CRC-32 (polynomial 0xEDB88320, reflected), computed bit by bit.
quint32 crc32Of(const QByteArray &bytes);

#pragma once

#include "products.h"
#include "simrun.h"
#include "wiremodel.h"

#include <QTemporaryDir>

// What the test classes here share: a directory for the packages that they make.
class DeviceTest : public QObject
{
    Q_OBJECT

protected:
    // Writes a package and returns its path.
    QString save(const QString &name, const QByteArray &package)
    {
        const QString path = packages.filePath(name);
        writeFile(path, package);
        return path;
    }
    QString save(const QString &name, const ProductFacts &product, const Images &images)
    {
        return save(name, makePackage(product, images));
    }

private:
    QTemporaryDir packages{"/tmp/capso-XXXXXX"};
};

// Two short sections in the sandbox: 4 bytes, 8 + 8, 8 + 4, 8 + 4.
inline Images tinyImages(const ProductFacts &product)
{
    Images images = makeImages(product, 8, 8);
    images.sections = {{0x40008000, "abcdefgh"}, {0x40009000, "ijkl"}};
    images.entry = 0x40008000;
    return images;
}

// The device "g" of the scenes holds exactly these images.
inline QString memoryMismatch(const SimRun &run, const Images &images)
{
    const std::pair<const char *, QByteArray> memories[] = {
        {"fx3", images.fx3}, {"fpga", images.fpga}, {"edid", images.edid}};
    for (const auto &[name, expected] : memories) {
        const QByteArray held = run.memory("g", name);
        if (held != expected) {
            return QString("%1: %2 bytes with CRC-32 %3, expected %4 with %5")
                .arg(name)
                .arg(held.size())
                .arg(crc32Of(held), 8, 16)
                .arg(expected.size())
                .arg(crc32Of(expected), 8, 16);
        }
    }
    return {};
}

#define COMPARE_MEMORIES(run, images)                                                              \
    do {                                                                                           \
        const QString mismatch = memoryMismatch(run, images);                                      \
        QVERIFY2(mismatch.isEmpty(), qPrintable(mismatch));                                        \
    } while (false)

// Every file that was opened on the device was given back and closed.
#define VERIFY_BALANCED(run)                                                                       \
    do {                                                                                           \
        const QString reason = (run).transcript().unbalanced("g");                                 \
        QVERIFY2(reason.isEmpty(), qPrintable(reason));                                            \
    } while (false)

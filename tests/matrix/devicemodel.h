#pragma once

#include "expectation.h"

#include <QJsonObject>

enum class Mode { Normal, Soft, Hard, Sandbox };

// What a device must be and hold after the tries that it has been through, whether they failed or
// not: as much of it as decides what comes next.
class DeviceModel
{
public:
    DeviceModel(const ProductFacts &product, Mode mode);

    // A try with these images has gone so far.
    void take(const Expectation &expected, const Images &images);
    // A device whose writing was cut short falls back to its second boot loader; one that has two
    // whole images runs; any other is in the boot loader that it was in.
    void powerCycle();

    const ProductFacts &product() const { return *facts; }
    Mode mode() const { return current; }
    bool runs() const { return current == Mode::Normal; }
    QString row() const;
    QByteArray sceneMode() const; // the simulator's word
    // "microcode writing 4096, bitstream complete"
    QString memories() const;
    static QString memoriesOf(const QJsonObject &state);

private:
    enum class Memory { Blank, Writing, Complete };
    static QString nameOf(Memory memory);

    const ProductFacts *facts;
    Mode current;
    Mode bootLoader;
    Memory microcode;
    Memory bitstream;
    qint64 microcodeTaken = 0; // while it is written
    bool microcodeWritten = false;
};

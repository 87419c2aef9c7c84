#include "devicemodel.h"

DeviceModel::DeviceModel(const ProductFacts &product, Mode mode)
    : facts(&product),
      current(mode),
      bootLoader(mode == Mode::Hard ? Mode::Hard : Mode::Soft),
      microcode(mode == Mode::Normal ? Memory::Complete : Memory::Blank),
      bitstream(microcode)
{
}

void DeviceModel::take(const Expectation &expected, const Images &images)
{
    if (expected.sandboxRuns || expected.left) {
        current = Mode::Sandbox;
    }
    if (expected.stage != Stage::Nothing && !images.fx3.isEmpty()) {
        microcode = expected.stage == Stage::Fx3Open ? Memory::Writing : Memory::Complete;
        microcodeTaken = expected.microcodeTaken;
        microcodeWritten = true;
    }
    if (expected.stage >= Stage::FpgaOpen && !images.fpga.isEmpty()) {
        bitstream = expected.stage == Stage::FpgaOpen ? Memory::Writing : Memory::Complete;
    }
    if (expected.gone) {
        powerCycle();
    }
}

void DeviceModel::powerCycle()
{
    if (microcode == Memory::Writing || bitstream == Memory::Writing) {
        bootLoader = Mode::Soft;
    }
    for (Memory *memory : {&microcode, &bitstream}) {
        *memory = *memory == Memory::Writing ? Memory::Blank : *memory;
    }
    const bool whole = microcode == Memory::Complete && bitstream == Memory::Complete;
    current = whole ? Mode::Normal : bootLoader;
}

// Microcode of these tests calls itself 7.8.9; a device whose microcode nobody has written, 1.0.0.
QString DeviceModel::row() const
{
    const bool isWritten = microcodeWritten && microcode == Memory::Complete;
    switch (current) {
    case Mode::Normal:
        return facts->name +
               QString(" (S1, %1) [%2]").arg(isWritten ? "7.8.9" : "1.0.0", facts->runningId);
    case Mode::Soft:
        return facts->name + QString(" (S1, ) [%1] (Soft Repair Mode)").arg(facts->softId);
    case Mode::Sandbox:
        return facts->name + QString(" (S1, ) [%1] (Soft Repair Mode)").arg(facts->sandboxId);
    default:
        return "WestBridge (S1, ) [04b4:00f3] (Hard Repair Mode)";
    }
}

QByteArray DeviceModel::sceneMode() const
{
    switch (current) {
    case Mode::Normal:
        return "normal";
    case Mode::Soft:
        return "soft";
    case Mode::Sandbox:
        return "sandbox";
    default:
        return "hard";
    }
}

QString DeviceModel::nameOf(Memory memory)
{
    return memory == Memory::Blank ? "blank" : memory == Memory::Writing ? "writing" : "complete";
}

QString DeviceModel::memories() const
{
    const QString taken = microcode == Memory::Writing ? QString(" %1").arg(microcodeTaken) : "";
    return "microcode " + nameOf(microcode) + taken + ", bitstream " + nameOf(bitstream);
}

QString DeviceModel::memoriesOf(const QJsonObject &state)
{
    const QJsonObject microcode = state["microcode"].toObject();
    const QString name = microcode["state"].toString();
    const QString taken = name == "writing" ? QString(" %1").arg(microcode["size"].toInt()) : "";
    return "microcode " + name + taken + ", bitstream " +
           state["fpga"].toObject()["state"].toString();
}

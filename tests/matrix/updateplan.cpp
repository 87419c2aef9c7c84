#include "updateplan.h"

#include "wiremodel.h"

Mode modeAfterPowerCycle(const Plan &plan, const Expectation &expected)
{
    if (expected.stage == Stage::Fx3Open || expected.stage == Stage::FpgaOpen) {
        return Mode::Soft;
    }
    const bool whole = expected.stage == Stage::Done && expected.sandboxRuns;
    return whole ? Mode::Normal : plan.mode;
}

QStringList probeWire(Mode mode, int firstPoll)
{
    return healthyProbe(mode == Mode::Normal, firstPoll);
}

Expectation expectRescue(const Plan &plan, const Expectation &expected)
{
    const bool repairing = modeAfterPowerCycle(plan, expected) != Mode::Normal;
    Script script(plan.busyPolls);
    if (repairing) {
        script.repair(*plan.product, plan.recovery);
    } else {
        script.regularUpdate(*plan.product, plan.recovery, 2);
    }
    return expectUpdate(script, repairing);
}

QStringList memoriesOf(const QJsonObject &state, const Images &images)
{
    QStringList texts;
    const std::pair<const char *, const QByteArray *> memories[] = {
        {"microcode", &images.fx3}, {"fpga", &images.fpga}, {"edid", &images.edid}};
    for (const auto &[name, image] : memories) {
        if (!image->isEmpty()) {
            const QJsonObject memory = state[QLatin1String(name)].toObject();
            texts.append(QString("%1 %2 %3")
                             .arg(memory["state"].toString())
                             .arg(memory["size"].toInt())
                             .arg(memory["crc32"].toString()));
        }
    }
    return texts;
}

QStringList memoriesHolding(const Images &images)
{
    QStringList texts;
    for (const QByteArray *image : {&images.fx3, &images.fpga, &images.edid}) {
        if (!image->isEmpty()) {
            texts.append(QString("complete %1 %2")
                             .arg(image->size())
                             .arg(crc32Of(*image), 8, 16, QChar('0')));
        }
    }
    return texts;
}

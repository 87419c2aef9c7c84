#pragma once

#include "expectation.h"
#include "matrix.h"

#include <memory>

// An update or a repair that is cut, and the one that brings the device back: what the dialog's
// cells and those of the command line have in common.

enum class Mode { Normal, Soft, Hard };

struct Plan
{
    const ProductFacts *product;
    Mode mode;
    Images images; // of the package that is cut
    QString package;
    Images recovery; // of the package that brings the device back
    QString recoveryPackage;
    int busyPolls;
    Script script;
    QByteArray scene;
    // How the command line's program says that it does not begin with the package, while the dialog
    // does nothing and calls that a success; empty: it does begin.
    QString cliRefusal;

    bool repairing() const { return mode != Mode::Normal; }
};

// A device whose image was not completed falls back to its second boot loader; one that had none
// stays in the boot loader that it was in.
Mode modeAfterPowerCycle(const Plan &plan, const Expectation &expected);

QStringList probeWire(Mode mode, int firstPoll = 1);

// A device that runs is updated, and one that does not is repaired.
Expectation expectRescue(const Plan &plan, const Expectation &expected);

// What a state of the device says of the memories of these images; what it must say.
QStringList memoriesOf(const QJsonObject &state, const Images &images);
QStringList memoriesHolding(const Images &images);

// The cell through the command line's program, with the fault that the dialog's cell sets by this
// command to the simulator.
Cell cliCellOf(const std::shared_ptr<const Plan> &plan, const Expectation &expected,
               const QString &title, const QString &fault);

#pragma once

#include "scenario.h"

#include <memory>

// A package of an operation, and the package that brings the device back.
struct Plan
{
    explicit Plan(const DeviceModel &first) : device(first) {}

    DeviceModel device;
    int busyPolls = 0;
    Images images;
    QString package;
    Images recovery;
    QString recoveryPackage;
    Script script; // of the operation
    // How the command line's program says that it does not begin with the package, while the dialog
    // does nothing and calls that a success; empty: it does begin.
    QString cliRefusal;
};

std::shared_ptr<Plan> makePlan(const ProductFacts &product, Mode mode, int busyPolls);

// Writes it to that folder, and returns its path.
QString savePackage(const QString &folder, const QString &name, const QByteArray &package);

// With the product's whole package, saved in that folder. An update's device says busy once after
// each start and each block, a repair's, whose requests are many, never.
std::shared_ptr<Plan> wholePlan(const QString &folder, const ProductFacts &product, Mode mode,
                                const QString &name);

// That try, and then the rescue.
Scenario scenarioOf(const Plan &plan, Try first);

// The first try and the rescue through the command line's program.
Cell cliCellOf(const std::shared_ptr<const Plan> &plan, const Try &first, const QString &title);

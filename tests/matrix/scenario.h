#pragma once

#include "devicemodel.h"
#include "matrix.h"

#include <functional>
#include <optional>

// One press of the update button, and what comes of it.
struct Try
{
    Images images; // of the package
    QString package;
    Expectation expected;
    QString fault = "clear-faults g"; // the command that sets it
    bool atOnce = false;              // the next try comes without a power cycle
    bool wakes = false;               // a device that is gone comes back by itself
};

// A device that is tried to be updated until it works: each try is one more operation of the
// dialog, and the last one goes well.
struct Scenario
{
    DeviceModel device; // at first
    QByteArray words;   // of the scene, about it
    std::vector<Try> tries;
    QStringList wireBefore = {}; // what the device saw before this program
    int firstPoll = 1;           // what it answers to the first status poll
};

// The scene's words for a device that says so often that it is busy after each start and each
// block.
QByteArray deviceWords(int busyPolls);

// The transfers of an update or, for a device that does not run, of a repair.
Script scriptOf(const DeviceModel &device, const Images &images, int busyPolls);

// A try of that script with one fault in it.
Try struckTry(const DeviceModel &device, const Script &script, std::size_t at, Fault fault);
Try goodTry(const DeviceModel &device, const Script &script);

// What the device is after a try, and after what comes between that and the next one.
DeviceModel deviceAfter(DeviceModel device, const Try &one);
DeviceModel deviceBeforeNext(DeviceModel device, const Try &one);

// The scene of a scenario, and what capso-clicker is to do.
QByteArray sceneOf(const Scenario &scenario);
QStringList operationsOf(const Scenario &scenario);

// What is wrong with its run: the signals, the dialog, every request that the device saw, and what
// it holds, after each try. At last it must hold the last package, and run it.
QString checkScenario(const SimRun &run, const Scenario &scenario);

// What a state of the device says of the memories of these images; what it must say.
QStringList memoriesOf(const QJsonObject &state, const Images &images);
QStringList memoriesHolding(const Images &images);

// A cell of a scenario that is made anew whenever it is needed, since there may be very many.
Cell cellOf(const std::function<Scenario()> &make, const QString &title);

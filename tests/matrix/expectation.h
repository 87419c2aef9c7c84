#pragma once

#include "faults.h"
#include "script.h"

// How far the images were written when an operation ended.
enum class Stage { Nothing, Fx3Open, Fx3Done, FpgaOpen, Done };

// What must be seen of one operation with one fault in it.
struct Expectation
{
    QStringList wire;        // what the device sees, from its open to its close
    QStringList signalLines; // "progress 34", "error TEXT", "complete"
    QStringList errors;      // the texts alone
    Stage stage = Stage::Done;
    qint64 microcodeTaken = 0; // bytes, when its writing was cut short
    bool gone = false;         // the device has left the bus
    bool left = false;         // the same, since the sandbox has started: it comes back by itself
    bool sandboxRuns = false;
    int firstPoll = 1;             // what a status poll is answered afterwards
    const char *differs = nullptr; // why a success does not mean that the package is in the device
};

// An update or a repair. `repairing`: the bar goes to 100 percent in any case, and the boot loader
// is what is opened.
Expectation expectUpdate(const Script &script, bool repairing);
Expectation expectUpdate(const Script &script, bool repairing, std::size_t at, Fault fault);

// Whether the fault can happen to this transfer: nothing shorter than nothing can arrive, only an
// answer can be a wrong one, and reading a string or a ping is no deed.
bool applies(const Step &step, Fault fault);

// The words of a scene for it.
QByteArray sceneWords(const Step &step, Fault fault);

// The bytes that arrive of a short transfer; what a device answers wrongly.
QByteArray shortened(const QByteArray &data);
QByteArray wrongAnswer(const Step &step);

// The line of the transcript for a transfer that was struck.
QString struckLine(const Step &step, Fault fault);

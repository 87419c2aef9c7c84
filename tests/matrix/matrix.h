#pragma once

#include "faults.h"
#include "script.h"
#include "simrun.h"

#include <functional>
#include <memory>
#include <optional>
#include <vector>

// One run of the program on simulated devices: an operation with at most one fault in it, and what
// follows until the device is well again.
struct Cell
{
    QString title;
    QByteArray scene;
    QStringList operations; // the program's
    // What is wrong with the run; empty if nothing is.
    std::function<QString(const SimRun &run)> check;
    // Whether a busy machine has missed the moment that this run was to show, which is then made
    // once more. Null: no run can.
    std::function<bool(const SimRun &run)> missed = nullptr;
    int request = -1; // the code of the transfer that is struck; -1 without a fault
    bool in = false;  // its direction
    std::optional<Fault> fault;
    QString program = CAPSO_CLICKER; // that runs the operations
    // The same operation with the same fault through the command line's program; null where it has
    // none.
    std::shared_ptr<const Cell> throughCli = nullptr;
};

// All cells of one operation. The first one is without a fault.
struct Operation
{
    QString group; // "scan", "update", "repair", "settings", ...
    QString title;
    std::vector<Cell> cells;

    // The program or the computer goes with the transfer that is struck.
    bool strikesHost() const { return group == "killed" || group == "asleep"; }
};

// The operations with their cells. Packages are written to that folder.
std::vector<Operation> scanOperations();
std::vector<Operation> updateOperations(const QString &packages);
std::vector<Operation> settingsOperations();
std::vector<Operation> hostOperations(const QString &packages);

// ---- what the scenarios share

// Adds a cell for every fault of every transfer of the script. `make` is called with the number of
// the transfer that is struck (counted from 0) and how, and the cell's title ("stall at 5 of 27: >
// c7 v0 i0 0").
using MakeCell = std::function<Cell(std::size_t at, Fault fault, const QString &title)>;
void addStruckCells(Operation &operation, const Script &script, const MakeCell &make);

QString cellTitle(const Script &script, std::size_t at, Fault fault);
// The command that sets the fault.
QString faultCommand(std::size_t at, const Step &step, Fault fault);

// What stands in the event "seen" after an operation (from 1).
QJsonObject seenAfter(const SimRun &run, int operation);
// What the simulator answered to the operation "control state g".
QJsonObject stateAt(const SimRun &run, int operation);
QStringList listIn(const QJsonObject &seen, const char *field);

// Empty when no file of a device was open after any of the operations. The transcript alone cannot
// tell: a file that the program forgets is closed when it ends.
QString filesLeftOpen(const SimRun &run);

// Empty when there were so many message boxes in the whole run.
QString checkBoxCount(const SimRun &run, int expected);

// What a scan asks of a device that is well, strings included.
QStringList healthyProbe(bool runs, int firstPoll = 1);

// A silent device is given ten seconds for a request about its EDID and one for any other.
QString checkPatience(const SimRun &run);

// Every request that the device "g" saw, and what was done with its file, less what depends on how
// soon libusb notices that a device is gone: it then refuses some calls by itself.
QStringList wireOf(const SimRun &run);

// Empty, or `what` and the first difference.
QString compareLists(const QString &what, const QStringList &actual, const QStringList &expected);
QString compareTexts(const QString &what, const QString &actual, const QString &expected);

// The first reason that is not empty.
QString firstOf(const std::vector<std::function<QString()>> &checks);

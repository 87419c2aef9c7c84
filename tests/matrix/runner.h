#pragma once

#include "matrix.h"

// A cell and the operation that it belongs to, which must outlive it.
struct ChosenCell
{
    const Operation *operation;
    const Cell *cell;
};

// The cells of a group ("update"), of an operation ("update velk3"), or of "all".
std::vector<ChosenCell> selectCells(const std::vector<Operation> &operations, const QString &name);

// Every operation without a fault, and cells that hold every pair of a request and a fault at least
// once; reading and writing under one code are two requests. The same seed makes the same choice.
std::vector<ChosenCell> sampleCells(const std::vector<Operation> &operations, unsigned seed);

// The faults that a request can have, the host's aside, and that the sample does not hold.
QStringList faultsLackingIn(const std::vector<ChosenCell> &sample,
                            const std::vector<Operation> &operations);

// The same cells through the command line's program, those that have no such cell left out.
std::vector<ChosenCell> throughCli(const std::vector<ChosenCell> &cells);

// Runs them, so many at a time, and prints what failed and a summary for each operation. Returns 0
// if all were good.
int runCells(const std::vector<ChosenCell> &cells, int atOnce);

// Runs one cell and prints all that can be known of it.
int showCell(const std::vector<Operation> &operations, const QString &operation,
             const QString &title, bool cli = false);

// capso-matrix: every operation of the program, cut at every transfer in every way. docs/faults.md.
//
//   capso-matrix size                      how many faults that makes
//
//   capso-matrix list                      every cell, one a line
//
//   capso-matrix run GROUP|OPERATION|all [AT-ONCE]
//                                          runs them, AT-ONCE (8) at a time
//
//   capso-matrix sample SEED [AT-ONCE]     runs some: each request with each of its faults, once
//
//   capso-matrix cli SEED [AT-ONCE]        the updates and repairs of that sample, through
//   capso-cli
//
//   capso-matrix cell OPERATION TITLE      runs one, and prints what program and device said
//
//   capso-matrix cli-cell OPERATION TITLE  the same through capso-cli

#include "matrix.h"
#include "runner.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <cstdio>

namespace {

std::vector<Operation> allOperations(const QString &packages)
{
    std::vector<Operation> all = scanOperations();
    for (std::vector<Operation> more : {updateOperations(packages), settingsOperations()}) {
        for (Operation &operation : more) {
            all.push_back(std::move(operation));
        }
    }
    return all;
}

int faultsIn(const Operation &operation)
{
    int count = 0;
    for (const Cell &cell : operation.cells) {
        count += cell.fault ? 1 : 0;
    }
    return count;
}

int printSize(const std::vector<Operation> &operations)
{
    int total = 0;
    for (const Operation &operation : operations) {
        total += faultsIn(operation);
        std::printf("%-34s %5d faults\n", qPrintable(operation.title), faultsIn(operation));
    }
    std::printf("%-34s %5d faults in %zu operations\n", "the matrix", total, operations.size());
    return 0;
}

int printList(const std::vector<Operation> &operations)
{
    for (const Operation &operation : operations) {
        for (const Cell &cell : operation.cells) {
            std::printf("%s | %s\n", qPrintable(operation.title), qPrintable(cell.title));
        }
    }
    return 0;
}

int usage()
{
    std::fputs("usage: capso-matrix size | list | run GROUP|OPERATION|all [AT-ONCE] | "
               "sample SEED [AT-ONCE] | cli SEED [AT-ONCE] | cell OPERATION TITLE | "
               "cli-cell OPERATION TITLE\n",
               stderr);
    return 2;
}

int runCommand(const QStringList &words, const std::vector<Operation> &operations)
{
    const QString command = words.value(0);
    const int atOnce = words.value(2, "8").toInt();
    if (command == "size") {
        return printSize(operations);
    }
    if (command == "list") {
        return printList(operations);
    }
    if (command == "run" && words.size() > 1 && atOnce > 0) {
        return runCells(selectCells(operations, words[1]), atOnce);
    }
    if (command == "sample" && words.size() > 1 && atOnce > 0) {
        return runCells(sampleCells(operations, words[1].toUInt()), atOnce);
    }
    if (command == "cli" && words.size() > 1 && atOnce > 0) {
        return runCells(throughCli(sampleCells(operations, words[1].toUInt())), atOnce);
    }
    if (command == "cell" && words.size() == 3) {
        return showCell(operations, words[1], words[2]);
    }
    if (command == "cli-cell" && words.size() == 3) {
        return showCell(operations, words[1], words[2], true);
    }
    return usage();
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    qputenv("QT_QPA_PLATFORM", "offscreen"); // the dialog needs no screen
    const QTemporaryDir packages("/tmp/capso-XXXXXX");
    return runCommand(QCoreApplication::arguments().mid(1), allOperations(packages.path()));
}

// capso-matrix: every operation of the program, cut at every transfer in every way. docs/faults.md.
//
//   capso-matrix size                      how many faults that makes; fails when samples lack some
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
//
//   capso-matrix twice size                how many pairs of faults there are, one after another
//
//   capso-matrix twice sample SEED LEAST [AT-ONCE]
//                                          runs some: each pair of requests, and so many at least
//
//   capso-matrix twice run PART/PARTS [AT-ONCE]
//                                          runs a part of them, "1/1" is all

#include "matrix.h"
#include "runner.h"
#include "twice.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>

namespace {

std::vector<Operation> allOperations(const QString &packages)
{
    std::vector<Operation> all = scanOperations();
    for (std::vector<Operation> more :
         {updateOperations(packages), settingsOperations(), hostOperations(packages)}) {
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

int faultsAfterTheDeed(const std::vector<Operation> &operations)
{
    int count = 0;
    for (const Operation &operation : operations) {
        for (const Cell &cell : operation.cells) {
            count += !operation.strikesHost() && cell.fault && isAfterTheDeed(*cell.fault) ? 1 : 0;
        }
    }
    return count;
}

constexpr unsigned s_sampleSeeds = 20; // of the samples that are looked at

// Whether each sample holds every fault of every request, either way.
bool samplesAreWhole(const std::vector<Operation> &operations)
{
    bool whole = true;
    for (unsigned seed = 1; seed <= s_sampleSeeds; ++seed) {
        const QStringList lacking = faultsLackingIn(sampleCells(operations, seed), operations);
        if (!lacking.isEmpty()) {
            std::printf("sample %u lacks: %s\n", seed, qPrintable(lacking.join(", ")));
            whole = false;
        }
    }
    return whole;
}

int printSize(const std::vector<Operation> &operations)
{
    int total = 0;
    for (const Operation &operation : operations) {
        total += faultsIn(operation);
        std::printf("%-50s %5d faults\n", qPrintable(operation.title), faultsIn(operation));
    }
    std::printf("%-50s %5d faults in %zu operations\n", "the matrix", total, operations.size());
    std::printf("%-50s %5d faults\n", "after the deed", faultsAfterTheDeed(operations));
    const std::vector<ChosenCell> sample = sampleCells(operations, 1);
    std::printf("%-50s %5zu runs, and %zu through capso-cli\n", "the sample", sample.size(),
                throughCli(sample).size());
    return samplesAreWhole(operations) ? 0 : 1;
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

// So many at a time are held in memory.
constexpr int s_twiceAtATime = 2000;

int printTwice(const TwiceMatrix &twice)
{
    std::printf("%d pairs of faults, %d pairs of requests\n", twice.size(), twice.requestPairs());
    return 0;
}

int runTwice(const TwiceMatrix &twice, const QString &part, int atOnce)
{
    const int parts = part.section('/', 1, 1).toInt();
    const int number = part.section('/', 0, 0).toInt();
    if (parts < 1 || number < 1 || number > parts) {
        return 2;
    }
    const qint64 size = twice.size();
    const int end = int(size * number / parts);
    int failed = 0;
    for (int from = int(size * (number - 1) / parts); from < end; from += s_twiceAtATime) {
        const std::vector<Operation> some{twice.part(from, std::min(end, from + s_twiceAtATime))};
        failed |= runCells(selectCells(some, "all"), atOnce);
    }
    return failed;
}

int usage()
{
    std::fputs("usage: capso-matrix size | list | run GROUP|OPERATION|all [AT-ONCE] | "
               "sample SEED [AT-ONCE] | cli SEED [AT-ONCE] | cell OPERATION TITLE | "
               "cli-cell OPERATION TITLE | twice size | "
               "twice sample SEED LEAST [AT-ONCE] | twice run PART/PARTS [AT-ONCE]\n",
               stderr);
    return 2;
}

int twiceCommand(const QStringList &words, const QString &packages)
{
    const TwiceMatrix twice(packages);
    const QString command = words.value(0);
    if (command == "size") {
        return printTwice(twice);
    }
    if (command == "sample" && words.size() > 2) {
        printTwice(twice);
        const std::vector<Operation> some{twice.sample(words[1].toUInt(), words[2].toInt())};
        return runCells(selectCells(some, "all"), words.value(3, "8").toInt());
    }
    if (command == "run" && words.size() > 1) {
        return runTwice(twice, words[1], words.value(2, "8").toInt());
    }
    return usage();
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
    const QStringList words = QCoreApplication::arguments().mid(1);
    if (words.value(0) == "twice") {
        return twiceCommand(words.mid(1), packages.path());
    }
    return runCommand(words, allOperations(packages.path()));
}

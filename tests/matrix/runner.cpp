#include "runner.h"

#include <QElapsedTimer>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <map>
#include <mutex>
#include <random>
#include <thread>
#include <tuple>

namespace {

constexpr int s_mostRuns = 5; // of a cell that misses its moment

QString problemOf(const Cell &cell, SimRun &run)
{
    return run.run() ? cell.check(run) : run.failure();
}

QString problemOf(const Cell &cell)
{
    for (int runs = 1;; ++runs) {
        SimRun run(cell.scene, cell.operations, cell.program);
        const QString problem = problemOf(cell, run);
        if (problem.isEmpty() || !cell.missed || !cell.missed(run) || runs == s_mostRuns) {
            return problem;
        }
    }
}

// Takes cells from the list until there are none. Every cell spends most of its time in pauses that
// the devices need, so many of these go on at the same time.
class Runner
{
public:
    Runner(const std::vector<ChosenCell> &chosen, int threads) : cells(chosen), atOnce(threads) {}

    int run()
    {
        QElapsedTimer time;
        time.start();
        std::vector<std::thread> threads;
        for (int i = 0; i < atOnce; ++i) {
            threads.emplace_back([this] { work(); });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        return summarize(time.elapsed() / 1000);
    }

private:
    void work()
    {
        for (std::size_t at = next++; at < cells.size(); at = next++) {
            const ChosenCell &chosen = cells[at];
            const QString problem = problemOf(*chosen.cell);
            if (!problem.isEmpty()) {
                report(chosen, problem);
            }
        }
    }

    void report(const ChosenCell &chosen, const QString &problem)
    {
        const std::lock_guard lock(mutex);
        failures[chosen.operation] += 1;
        std::printf("FAILED %s, %s\n   %s\n", qPrintable(chosen.operation->title),
                    qPrintable(chosen.cell->title), qPrintable(problem));
        std::fflush(stdout);
    }

    int summarize(qint64 seconds)
    {
        std::map<const Operation *, int> counts;
        int failed = 0;
        for (const ChosenCell &chosen : cells) {
            counts[chosen.operation] += 1;
        }
        for (const auto &[operation, count] : counts) {
            failed += failures[operation];
            std::printf("%-34s %5d runs, %d failed\n", qPrintable(operation->title), count,
                        failures[operation]);
        }
        std::printf("%-34s %5zu runs, %d failed, in %lld seconds\n", "in all", cells.size(), failed,
                    static_cast<long long>(seconds));
        return failed == 0 && !cells.empty() ? 0 : 1;
    }

    const std::vector<ChosenCell> &cells;
    const int atOnce;
    std::atomic<std::size_t> next{0};
    std::mutex mutex;
    std::map<const Operation *, int> failures;
};

} // namespace

std::vector<ChosenCell> selectCells(const std::vector<Operation> &operations, const QString &name)
{
    std::vector<ChosenCell> chosen;
    for (const Operation &operation : operations) {
        if (name == "all" || name == operation.group || name == operation.title) {
            for (const Cell &cell : operation.cells) {
                chosen.push_back({&operation, &cell});
            }
        }
    }
    return chosen;
}

std::vector<ChosenCell> sampleCells(const std::vector<Operation> &operations, unsigned seed)
{
    std::vector<ChosenCell> chosen;
    std::map<std::tuple<bool, int, bool, Fault>, std::vector<ChosenCell>> kinds;
    for (const Operation &operation : operations) {
        for (const Cell &cell : operation.cells) {
            if (cell.fault) {
                kinds[{operation.strikesHost(), cell.request, cell.in, *cell.fault}].push_back(
                    {&operation, &cell});
            } else {
                chosen.push_back({&operation, &cell});
            }
        }
    }
    // The engine's numbers are the same everywhere; a distribution's are not.
    std::mt19937 random(seed);
    for (const auto &[kind, cells] : kinds) {
        chosen.push_back(cells[random() % cells.size()]);
    }
    return chosen;
}

QStringList faultsLackingIn(const std::vector<ChosenCell> &sample,
                            const std::vector<Operation> &operations)
{
    const auto nameOf = [](const Cell &cell) {
        return QString("%1 %2 %3")
            .arg(factsOf(*cell.fault).title, cell.in ? "<" : ">")
            .arg(cell.request, 2, 16, QChar('0'));
    };
    QStringList lacking;
    for (const ChosenCell &all : selectCells(operations, "all")) {
        if (all.cell->fault && !all.operation->strikesHost()) {
            lacking.append(nameOf(*all.cell));
        }
    }
    for (const ChosenCell &one : sample) {
        if (one.cell->fault && !one.operation->strikesHost()) {
            lacking.removeAll(nameOf(*one.cell));
        }
    }
    lacking.removeDuplicates();
    return lacking;
}

std::vector<ChosenCell> throughCli(const std::vector<ChosenCell> &cells)
{
    std::vector<ChosenCell> chosen;
    for (const ChosenCell &cell : cells) {
        if (cell.cell->throughCli) {
            chosen.push_back({cell.operation, cell.cell->throughCli.get()});
        }
    }
    return chosen;
}

int runCells(const std::vector<ChosenCell> &cells, int atOnce)
{
    return Runner(cells, atOnce).run();
}

int showCell(const std::vector<Operation> &operations, const QString &operation,
             const QString &title, bool cli)
{
    const std::vector<ChosenCell> selected = selectCells(operations, operation);
    for (const ChosenCell &chosen : cli ? throughCli(selected) : selected) {
        if (chosen.cell->title != title) {
            continue;
        }
        std::printf("%s", chosen.cell->scene.constData());
        std::printf("operations: %s\n", qPrintable(chosen.cell->operations.join(' ')));
        SimRun run(chosen.cell->scene, chosen.cell->operations, chosen.cell->program);
        const QString problem = problemOf(*chosen.cell, run);
        std::printf("%s\n", qPrintable(run.standardError()));
        for (const QString &line : run.transcript().texts("g")) {
            std::printf("%s\n", qPrintable(line));
        }
        std::printf("%s\n", problem.isEmpty() ? "passed" : qPrintable("FAILED: " + problem));
        return problem.isEmpty() ? 0 : 1;
    }
    std::fprintf(stderr, "no such cell\n");
    return 2;
}

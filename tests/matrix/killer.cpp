// capso-killer TRANSFERS MODE WORD... -- WORD...: runs capso-clicker with the first words, kills it
// when the device "g" has been asked for so many control transfers, and runs it anew with the
// others as soon as the device is in that mode. What the one that is killed prints is of no
// interest.

#include "simulation.h"

#include <QJsonObject>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int s_patienceMs = 60 * 1000;
constexpr int s_lookMs = 5; // the program waits for a silent device for a second

[[noreturn]] void become(char **words, int count)
{
    std::vector<char *> arguments{const_cast<char *>(CAPSO_CLICKER)};
    arguments.insert(arguments.end(), words, words + count);
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(127);
}

template<typename Condition> bool await(Condition condition)
{
    for (int ms = 0; ms < s_patienceMs; ms += s_lookMs) {
        if (condition(simulation::state(QStringLiteral("g")))) {
            return true;
        }
        usleep(s_lookMs * 1000);
    }
    return false;
}

} // namespace

int main(int argc, char **argv)
{
    int end = 3;
    while (end < argc && std::strcmp(argv[end], "--") != 0) {
        ++end;
    }
    if (end >= argc) {
        return 2;
    }
    const int transfers = std::atoi(argv[1]);
    const QJsonObject first = simulation::state(QStringLiteral("g"));
    const pid_t child = fork();
    if (child == 0) {
        dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
        become(argv + 3, end - 3);
    }
    const bool struck = await(
        [transfers](const QJsonObject &state) { return state["transfers"].toInt() >= transfers; });
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    // The end of its files is noticed a moment after its own. A device that is on its way into
    // another mode has another address when it has arrived.
    const QString mode = QString::fromLocal8Bit(argv[2]);
    const auto hasArrived = [&mode, &first](const QJsonObject &state) {
        return state["openFiles"].toInt() == 0 && state["plugged"].toBool() &&
               state["mode"].toString() == mode &&
               (first["mode"].toString() == mode || state["address"] != first["address"]);
    };
    if (!struck || !await(hasArrived)) {
        std::fputs("capso-killer: the device has not come so far\n", stderr);
        return 3;
    }
    become(argv + end + 1, argc - end - 1);
}

// capso-killer TRANSFERS WORD... -- WORD...: runs capso-clicker with the first words, kills it when
// the device "g" has been asked for so many control transfers, and runs it anew with the others.
// What the one that is killed prints is of no interest.

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
    int end = 2;
    while (end < argc && std::strcmp(argv[end], "--") != 0) {
        ++end;
    }
    if (end >= argc) {
        return 2;
    }
    const int transfers = std::atoi(argv[1]);
    const pid_t child = fork();
    if (child == 0) {
        dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
        become(argv + 2, end - 2);
    }
    const bool struck = await(
        [transfers](const QJsonObject &state) { return state["transfers"].toInt() >= transfers; });
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    // The end of its files is noticed a moment after its own.
    if (!struck ||
        !await([](const QJsonObject &state) { return state["openFiles"].toInt() == 0; })) {
        std::fputs("capso-killer: the device has not seen so many transfers\n", stderr);
        return 3;
    }
    become(argv + end + 1, argc - end - 1);
}

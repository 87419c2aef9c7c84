#include "simulation.h"

#include "controlsocket.h"
#include "machine.h"
#include "outputdirectory.h"
#include "program.h"
#include "simulationlock.h"

#include <glib-unix.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sys/vfs.h>
#include <unistd.h>

#include <linux/magic.h>

namespace sim {
namespace {

constexpr int s_sceneFailed = 90;
constexpr unsigned s_closingTakesMs = 1000; // at most
constexpr size_t s_longestTemporaryPath = 60;

bool isMemoryFileSystem(const char *path)
{
    struct statfs info = {};
    return statfs(path, &info) == 0 && info.f_type == TMPFS_MAGIC && access(path, W_OK) == 0;
}

// umockdev makes its directory below TMPDIR. In memory an unplug costs half a millisecond instead
// of tens, and the sockets in it need a short path.
void chooseTemporaryDirectory()
{
    const char *chosen = std::getenv("TMPDIR");
    if (isMemoryFileSystem("/dev/shm")) {
        chosen = "/dev/shm";
    } else if (!chosen || std::string(chosen).size() > s_longestTemporaryPath) {
        chosen = "/tmp";
    }
    setenv("TMPDIR", chosen, 1);
}

// umockdev takes the directory from glib, which asks for TMPDIR once and remembers the answer; the
// program keeps its own. The variable is put back before there is a test bed: its thread reads
// variables, and none may change then.
std::unique_ptr<TestBed> makeTestBed()
{
    const char *variable = std::getenv("TMPDIR");
    const std::string before = variable ? variable : "";
    chooseTemporaryDirectory();
    g_get_tmp_dir();
    if (variable) {
        setenv("TMPDIR", before.c_str(), 1);
    } else {
        unsetenv("TMPDIR");
    }
    return std::make_unique<TestBed>();
}

void say(const std::string &text)
{
    std::fprintf(stderr, "capso-sim: %s\n", text.c_str());
}

// umockdev finds it critical when a program ends with a device open; for the simulator it is an
// everyday matter.
void ignoreOpenStreams(const char *domain, GLogLevelFlags level, const char *message, void *)
{
    if (!std::strstr(message, "Destroying IoctlClient with open stream")) {
        g_log_default_handler(domain, level, message, nullptr);
    }
}

// The main loop, and what ends it.
class Loop
{
public:
    Loop() : loop(g_main_loop_new(nullptr, FALSE)) {}
    ~Loop() { g_main_loop_unref(loop); }
    Loop(const Loop &) = delete;
    Loop &operator=(const Loop &) = delete;

    int run()
    {
        g_main_loop_run(loop);
        return code;
    }
    void quit(int exitCode)
    {
        code = exitCode;
        g_main_loop_quit(loop);
    }

private:
    GMainLoop *loop;
    int code = 0;
};

// The end of the program's files is noticed a moment after its own.
void awaitClosing(const Machine &machine)
{
    for (unsigned ms = 0; ms < s_closingTakesMs; ++ms) {
        {
            const SimulationLock lock;
            if (machine.isIdle()) {
                return;
            }
        }
        g_usleep(1000);
    }
}

int endProgram(void *program)
{
    const SimulationLock lock;
    static_cast<Program *>(program)->end();
    return G_SOURCE_CONTINUE;
}

} // namespace

int runSimulation(const Scene &scene, const std::vector<std::string> &program,
                  const SimulationOptions &options)
{
    g_log_set_handler(nullptr, G_LOG_LEVEL_CRITICAL, &ignoreOpenStreams, nullptr);
    const OutputDirectory output;
    Transcript transcript(output.path() + "/transcript.jsonl", scene.fullTranscript);
    const std::unique_ptr<TestBed> bed = makeTestBed();
    Machine machine(*bed, transcript, scene, output.path());
    if (options.verbose) {
        say("outputs are in " + output.path());
        machine.setNewsSink(say);
    }
    {
        const SimulationLock lock;
        machine.plugAll();
    }

    Loop loop;
    Program child([&loop](int code) { loop.quit(code); });
    const ControlSocket control(output.path(), [&machine](const std::string &line) {
        const SimulationLock lock;
        return machine.command(line);
    });
    machine.onQuit = [&child] { child.end(); };
    std::signal(SIGINT, SIG_IGN);
    g_unix_signal_add(SIGTERM, &endProgram, &child);
    g_unix_signal_add(SIGHUP, &endProgram, &child);

    child.start(program, {bed->root(), output.path(), scene.deniesAccess() && geteuid() == 0});
    const int code = loop.run();
    awaitClosing(machine);
    const SimulationLock lock;
    machine.dump();
    if (!options.stateDirectory.empty()) {
        machine.keep(options.stateDirectory);
    }
    return scene.strict && machine.sawViolation() ? s_sceneFailed : code;
}

} // namespace sim

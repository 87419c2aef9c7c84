#include "simulatedtest.h"

#include "simulation.h"
#include "usbprogram.h"

#include <QApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

// AddressSanitizer asks for these. Qt's platform plugin for tests without a screen never frees the
// screen that it makes up; only whole call stacks show that it was the plugin.
extern "C" const char *__asan_default_options();
extern "C" const char *__lsan_default_suppressions();
const char *__asan_default_options()
{
    return "fast_unwind_on_malloc=0";
}
const char *__lsan_default_suppressions()
{
    return "leak:libqoffscreen.so\n";
}

namespace {

// Scenes by function, in the order in which they are listed. A function-local object, since it is
// filled before main().
std::map<std::string, const char *> &scenes()
{
    static std::map<std::string, const char *> s_scenes;
    return s_scenes;
}

bool isNameOfScene(const char *scene)
{
    return std::strchr(scene, '\n') == nullptr;
}

// Runs this program under the simulator; returns its exit code.
int runOnScene(const char *program, const std::string &function, const QStringList &options)
{
    const char *scene = scenes().at(function);
    // Short, since a socket is in there.
    const QTemporaryDir directory("/tmp/capso-XXXXXX");
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // It also tells the program not to run itself again.
    environment.insert("CAPSO_SIM_DIR", directory.path());

    QProcess simulator;
    simulator.setProcessChannelMode(QProcess::ForwardedChannels);
    simulator.setProcessEnvironment(environment);
    const QStringList command = QStringList{program, QString::fromStdString(function)} + options;
    if (std::strcmp(scene, s_noUsbBus) == 0) {
        // It shows a machine that has no devices of any kind. Like the simulator's, its library is
        // in front of AddressSanitizer's.
        environment.insert("ASAN_OPTIONS", "verify_asan_link_order=0");
        simulator.setProcessEnvironment(environment);
        simulator.start("umockdev-run", QStringList{"--"} + command);
    } else {
        simulator.start(CAPSO_SIM, QStringList{isNameOfScene(scene) ? scene : "-", "--"} + command);
    }
    if (!isNameOfScene(scene)) {
        simulator.write(scene);
    }
    simulator.closeWriteChannel();
    simulator.waitForFinished(-1);
    return simulator.exitStatus() == QProcess::NormalExit ? simulator.exitCode() : 255;
}

} // namespace

SceneOf::SceneOf(const char *function, const char *scene)
{
    scenes()[function] = scene;
}

void SimulatedTest::cleanup()
{
    if (QTest::currentTestFailed()) {
        return;
    }
    // The simulator may notice the last close a moment after the program has gone on.
    EVENTUALLY_EQUAL(simulation::transcript().misused(), QString());
}

int runSimulated(int argc, char **argv, int (*run)(int, char **))
{
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    std::vector<std::string> functions;
    QStringList options;
    for (int i = 1; i < argc; ++i) {
        if (scenes().count(argv[i]) != 0) {
            functions.push_back(argv[i]);
        } else {
            options.append(argv[i]);
        }
    }
    if (qEnvironmentVariableIsSet("CAPSO_SIM_DIR") || options.contains("-functions")) {
        return run(argc, argv);
    }
    if (functions.empty()) {
        for (const auto &[name, scene] : scenes()) {
            functions.push_back(name);
        }
    }
    int failed = 0;
    for (const std::string &function : functions) {
        const int code = runOnScene(argv[0], function, options);
        if (code != 0) {
            std::printf("%s ended with exit code %d\n", function.c_str(), code);
            ++failed;
        }
    }
    return failed;
}

int runWithDialogs(int argc, char **argv, QObject &test)
{
    return runUsbProgram<QApplication>(argc, argv, [&] { return QTest::qExec(&test, argc, argv); });
}

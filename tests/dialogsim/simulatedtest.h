#pragma once

#include <QObject>

// Tests of the real program on simulated devices. Each test function has a scene of its own, which
// stands in front of it:
//
//     SCENE(TestSettings, flagsAreShown, "device v\n product velk3\n flags 0x17\n")
//     {
//         SimulatedDialog user;
//         ...
//     }
//
// The test program runs itself under the simulator, once for each function: it needs a fresh set of
// devices, and the simulator shows its devices to a program from its start. The scene is a text, or
// the name of a built-in one, or s_noUsbBus.

// How long something may take on a machine that is busy with other tests.
constexpr int s_patienceMs = 30000;

// A machine without a USB bus, instead of a scene.
constexpr char s_noUsbBus[] = "no USB bus";

#define EVENTUALLY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, s_patienceMs)
#define EVENTUALLY_EQUAL(actual, expected) QTRY_COMPARE_WITH_TIMEOUT(actual, expected, s_patienceMs)

// Notes a function's scene; for the macros.
class SceneOf
{
public:
    SceneOf(const char *function, const char *scene);
};

#define SCENE(Class, function, scene)                                                              \
    static const SceneOf s_sceneOf_##function(#function, scene);                                   \
    void Class::function()

// After each test function, when the dialog is gone, it looks at how the devices were used
// (SimTranscript::misused()).
class SimulatedTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup();
};

// The test program's main(): runs each named function (all, if none is) on its scene. `run` is
// called under the simulator.
int runSimulated(int argc, char **argv, int (*run)(int, char **));

// For test classes that make dialogs themselves: libusb and the application object are there while
// `test` runs.
int runWithDialogs(int argc, char **argv, QObject &test);

#define SIMULATED_DIALOG_TEST_MAIN(Class)                                                          \
    int main(int argc, char **argv)                                                                \
    {                                                                                              \
        return runSimulated(argc, argv, [](int count, char **words) {                              \
            Class test;                                                                            \
            return runWithDialogs(count, words, test);                                             \
        });                                                                                        \
    }

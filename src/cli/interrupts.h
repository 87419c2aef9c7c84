#pragma once

#include <QObject>

// Ctrl+C, SIGTERM, SIGQUIT and a lost terminal; on Windows Ctrl+C, Ctrl+Break, a closed console,
// and the end of the session or of Windows, which can be held up for some seconds only. They end
// the program at once, wherever it waits, unless something is under way with a device: a request
// that is cut leaves the device without its kernel driver, and an update that is cut leaves it
// broken. A signal that was ignored when the program started, as under nohup, stays ignored.
//
// One object, made on the main thread before anything else that could be interrupted. When it has
// gone, the signals end the program no more.
class Interrupts : public QObject
{
    Q_OBJECT

public:
    Interrupts();
    ~Interrupts() override;

    // While one lives, something is under way with a device, and the signals are kept. One that
    // came ends the program when the last has gone. Ctrl+Z stops the program when this one has
    // gone, and no other lives or is made within: the device would stay claimed meanwhile.
    class Busy
    {
    public:
        Busy();
        ~Busy();
        Busy(const Busy &) = delete;
        Busy &operator=(const Busy &) = delete;
    };
    // A device is written to. From now on the signals end the program no more: its exit status
    // tells what has become of the device.
    static void keep();

    // How many of the signals have come while they were kept.
    static int count();

    // While one lives, Ctrl+Z does not stop the program but is an interruption as well: the device
    // would wait for its next block until somebody continues the program.
    class NoStop
    {
    public:
        NoStop();
        ~NoStop();
        NoStop(const NoStop &) = delete;
        NoStop &operator=(const NoStop &) = delete;
    };

signals:
    // Once for each signal that is kept while the event loop runs.
    void interrupted();
};

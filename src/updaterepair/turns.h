#pragma once

#include <functional>
#include <vector>

// Whose turn it is. A device's interface can be claimed by one at a time, so what is asked for
// begins at once and is sent then or later:
//
// - an update or a configuration request waits for the answer to a poll,
// - a scan, which opens every device, waits for that and for the end of a configuration request,
// - a poll waits for nothing; it is to be asked for only while mayPoll().
//
// A scan that runs, an update and a request are kept apart by the locked controls and not here:
// whoever asks for one locks them first, and unlocks them when isIdle().
//
// Calls in, calls out: it knows no signal, no widget and no thread.
class Turns
{
public:
    enum class Work { Scan, Update, Configuration, Poll };
    using Send = std::function<void()>;

    // Knows whether the answer to what was asked is still wanted. One that nobody has given stands
    // for what was never asked for: it is taken as it comes. It must not outlive its Turns.
    class Ticket
    {
    public:
        Ticket() = default;
        bool isWanted() const { return !counter || *counter == then; }

    private:
        friend class Turns;
        explicit Ticket(const int &watched) : counter(&watched), then(watched) {}

        const int *counter = nullptr; // of what makes the answer unwanted
        int then = 0;                 // its value when the work began
    };

    Turns() = default;
    Turns(const Turns &) = delete; // tickets point into it
    Turns &operator=(const Turns &) = delete;

    // Each begins its work. `send` is called once: now, or by the ended() that it waits for.
    void askScan(Send send);
    void askUpdate(Send send);
    // The answer is wanted until another row is chosen.
    [[nodiscard]] Ticket askConfiguration(Send send);
    // The answer is wanted until the list is cleared.
    [[nodiscard]] Ticket askPoll(const Send &send);
    // The work has ended. Sends what waited for it: requests, then scans, each in the order in
    // which they were asked for. An end of what has not begun is ignored.
    void ended(Work work);

    // No scan, update or configuration request has begun and not ended, sent or not.
    bool isIdle() const;
    // Nothing runs, and no poll is unanswered.
    bool mayPoll() const { return isIdle() && !polling; }
    bool isScanning() const { return scans > 0; }
    // Another scan was asked for after the one that runs: what that finds will be found again.
    bool isScanOvertaken() const { return scans > 1; }

    void rowChosen() { ++choices; }
    // No device is listed any more, so none is chosen either.
    void listCleared();

    // The page that is shown is to be loaded as soon as isIdle().
    void rememberLoad() { loadRemembered = true; }
    // Whether it is; true once.
    bool takeRememberedLoad();

private:
    void sendWaiting();

    int scans = 0; // begun and not ended
    bool updating = false;
    bool configuring = false;
    bool polling = false;
    std::vector<Send> waitingRequests;
    std::vector<Send> waitingScans;
    int choices = 0; // of a row, so far
    int lists = 0;   // cleared so far
    bool loadRemembered = false;
};

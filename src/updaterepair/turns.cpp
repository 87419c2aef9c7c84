#include "turns.h"

#include <utility>

void Turns::askScan(Send send)
{
    ++scans;
    waitingScans.push_back(std::move(send));
    sendWaiting();
}

void Turns::askUpdate(Send send)
{
    updating = true;
    waitingRequests.push_back(std::move(send));
    sendWaiting();
}

Turns::Ticket Turns::askConfiguration(Send send)
{
    configuring = true;
    waitingRequests.push_back(std::move(send));
    sendWaiting();
    return Ticket(choices);
}

Turns::Ticket Turns::askPoll(const Send &send)
{
    polling = true;
    send();
    return Ticket(lists);
}

void Turns::ended(Work work)
{
    switch (work) {
    case Work::Scan:
        scans = scans > 0 ? scans - 1 : 0;
        break;
    case Work::Update:
        updating = false;
        break;
    case Work::Configuration:
        configuring = false;
        break;
    case Work::Poll:
        polling = false;
        break;
    }
    sendWaiting();
}

bool Turns::isIdle() const
{
    return scans == 0 && !updating && !configuring;
}

void Turns::listCleared()
{
    ++choices;
    ++lists;
}

bool Turns::takeRememberedLoad()
{
    return std::exchange(loadRemembered, false);
}

void Turns::sendWaiting()
{
    if (polling) {
        return;
    }
    for (const Send &send : std::exchange(waitingRequests, {})) {
        send();
    }
    if (configuring) {
        return;
    }
    for (const Send &send : std::exchange(waitingScans, {})) {
        send();
    }
}

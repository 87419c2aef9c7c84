#include "turns.h"

#include <utility>

Turns::Ticket Turns::ask(Work work, Send send)
{
    switch (work) {
    case Work::Scan:
        ++scans;
        waitingScans.push_back(std::move(send));
        break;
    case Work::Update:
        updating = true;
        waitingRequests.push_back(std::move(send));
        break;
    case Work::Configuration:
        configuring = true;
        waitingRequests.push_back(std::move(send));
        break;
    case Work::Poll:
        polling = true;
        send();
        return Ticket(lists);
    }
    sendWaiting();
    return work == Work::Configuration ? Ticket(choices) : Ticket();
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

#ifndef SCRIPTEDWDI_H
#define SCRIPTEDWDI_H

#include "wdifunctions.h"

#include <QByteArray>
#include <QList>

#include <functional>

// A libwdi that answers from a script and notes every call. The devices of a list are allocated for
// that list and freed with it, texts included, so a sanitizer sees any use after the list is gone.
namespace scriptedwdi {

struct Device
{
    unsigned short vid;
    unsigned short pid;
    unsigned char mi;
    const char *desc;
    const char *deviceId;
    const char *hardwareId;
};

struct Listing
{
    int result;
    QList<Device> devices;
};

struct Script
{
    QList<Listing> listings; // the answer to each call in turn
    int prepareResult = 0;
    QList<int> installResults; // the answer to each call in turn
    bool hasErrorTexts = true;
    std::function<void()> onInstall;
};

// Starts over: no calls, no lists, this script.
void begin(const Script &script);

// The calls so far, one line each.
QList<QByteArray> calls();

// Lists that were handed out and not destroyed yet.
int liveLists();

usb::wdi::Functions functions();

} // namespace scriptedwdi

#endif

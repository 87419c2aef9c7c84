#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

// The simulator that shows this process its devices, seen from inside: its control channel, and the
// transcript of what the devices have seen so far.
namespace simulation {

// Sends a command and returns what follows the "ok". A command that is refused ends the test.
QString control(const QString &command);

// What a device is and holds, as state.json has it.
QJsonObject state(const QString &device);

// What its memory holds ("fx3", "fpga" or "edid").
QByteArray memory(const QString &device, const QString &image);

// An image of the sample packages ("fx3", ...), and the package itself.
QByteArray packagedImage(const QString &package, const QString &image);
QString packageFile(const QString &package);

// Every line of the transcript up to now, oldest first.
QList<QJsonObject> transcript();

// How long the transcript is: a mark for the functions below.
int mark();

// The vendor requests that a device has answered since the mark, one line each: direction, name,
// index where it is not 0, data, and the status unless it is "ok". For example
//     "< GET_DEVICE_FLAGS 17"   "> USER_MODE index 1 0005d00201"   "< INPUT_STATUS stall"
QStringList requests(const QString &device, int since = 0);

// The same without the status polls that run by themselves.
QStringList configRequests(const QString &device, int since = 0);

// How often this event has happened to the device since the mark.
int countEvents(const QString &device, const QString &event, int since = 0);

// The devices in the order in which the program has opened them for the first time since the mark.
QStringList openingOrder(int since = 0);

// What is wrong with how the program has used the devices; empty if nothing is. No claim may have
// been refused, which is what happens to whoever comes while somebody else is at work on a device;
// and every file that was opened must have been closed.
QString usageProblem();

} // namespace simulation

#pragma once

#include "simtranscript.h"

#include <QJsonObject>

// The simulator that shows this process its devices, seen from inside: its control channel, what
// the devices hold, and what they have seen so far.
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

// What all devices have seen up to now.
SimTranscript transcript();

// Parts of it that many tests look at. A mark is how long it is now.
int mark();
QStringList requests(const QString &device, int since = 0);
// Less the status polls, which run by themselves, and what a scan asks.
QStringList configRequests(const QString &device, int since = 0);
int countEvents(const QString &device, const QString &event, int since = 0);

} // namespace simulation

#pragma once

#include <QByteArray>

// Sends one command to the simulator that shows this process its devices and returns its one line
// of answer, without the line end. Empty when there is no simulator to talk to.
QByteArray sendControlCommand(const QByteArray &command);

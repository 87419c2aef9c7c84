#pragma once

#include <QJsonObject>
#include <QString>

// Prints what the front objects signal, one JSON object a line on standard output, flushed at once
// so that a driver that is killed has said all it knew. `op` is the number of the operation under
// way, from 1, and `n` the number of the line.
class EventLog
{
public:
    void beginOperation() { operation += 1; }
    void write(const QString &event, QJsonObject fields = {});

private:
    int operation = 0;
    int line = 0;
};

#pragma once

#include <QByteArray>
#include <QString>

// The one way in which the tests write a request down:
//
//   "> c6 v0 i0 4096 sha1:7f31.."   OUT: bRequest, wValue, wIndex (all hexadecimal), wLength, the
//                                   data: in full up to 16 bytes, else its SHA-1
//   "< c8 v0 i0 1 01"               IN, with what the device answered
//
// A transfer that did not end well has its status at the end: "> c5 v0 i0 0 stall". One that ended
// well, but of which only a part went through: "> c6 v0 i0 8 6162636465666768 short 4". Where the
// program's call is seen rather than what comes of it, its time limit in milliseconds is there:
// "< c8 v0 i0 1 t1000".

enum class Direction { Out, In };

// A request as the program makes it; without the data for an IN request.
struct Request
{
    Direction direction;
    int code; // bRequest
    int value = 0;
    int index = 0;
    int length = 0;
};

QString requestLine(const Request &request, const QByteArray &data = {});

// How these lines show data.
QString showBytes(const QByteArray &bytes);

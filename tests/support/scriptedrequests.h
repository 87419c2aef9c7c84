#pragma once

#include "script.h"

#include <QStringList>

// What the scripted libusb sees of an operation in which nothing goes wrong.

// The requests of a script, as the device has to see them; and those of one image.
QStringList requestsOf(const Script &script);
QStringList microcodeRequests(const QByteArray &image);
QStringList bitstreamRequests(const ProductFacts &product, const QByteArray &image);
QStringList edidRequests(const QByteArray &edid);
// Write and read-back of each piece of these sections of a sandbox, and its start.
QStringList loadingRequests(const std::vector<BootSection> &sections);
QStringList startRequests(quint32 entry);

// Lines of the call log: the transfers of one device, and opening and giving back around other
// lines.
QStringList transferLines(const char *device, const QStringList &requests);
QStringList opening(const char *device);
QStringList givingBack(const char *device);

#pragma once

#include "capturedoutput.h"
#include "products.h"
#include "recordof.h"
#include "scriptedlibusb.h"
#include "scriptedrequests.h"

#include "productcatalogue.h"

#include <QTemporaryDir>

// One update on a scripted bus, from start() to complete(), with everything that it says.
class UpdateRun
{
public:
    UpdateRun();

    ScriptedUsb bus;
    CapturedDebug debug;
    CapturedStream standardLog;
    CapturedStream standardError;

    // Runs the update and returns its signals in order: "progress 1", "error TEXT", "complete". The
    // end is proved by a second update that is queued behind it, so nothing that comes late is
    // missed.
    QStringList run(const DeviceDescription &description, const QString &packagePath);
    QStringList run(const DeviceDescription &description, const std::vector<PackageEntry> &package);

    // What the first update wrote through qDebug.
    QStringList debugLines() const { return lines; }

    // What the task knows of products.
    const ProductCatalogue *catalogue = &s_products;

    QTemporaryDir directory;

private:
    QStringList lines;
};

// "progress 1", "progress 2".
QStringList progressLines(std::initializer_list<int> values);

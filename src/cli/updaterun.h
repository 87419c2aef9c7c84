#pragma once

#include "exitstatus.h"
#include "updatesteps.h"

#include <QString>

struct ListedDevice;
struct Session;

// What the update of one device came to.
struct UpdateResult
{
    ExitStatus status = ExitStatus::Done;
    QString error; // the update's own text; empty when it succeeded
};

// Updates or, by its mode, repairs the device, and shows how far it is. Comes back at the update's
// end and not before: what would interrupt it is answered with "DO NOT INTERRUPT".
UpdateResult updateDevice(Session &session, const ListedDevice &device, const QString &fileName,
                          const UpdateSteps &steps);

#pragma once

#include "diagnosis.h"

// What the diagnosis is told. A source for each system.

// The machine and its user, with `program` as a shell would call this program.
Machine lookAround(const QString &program);
// The device's node on such a machine.
Node lookAt(const usbview::SystemDevice &device);

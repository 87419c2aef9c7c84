#pragma once

// The most memory that this process has used so far, in MiB.
long peakMemory();

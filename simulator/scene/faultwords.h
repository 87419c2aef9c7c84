#pragma once

#include "fault.h"
#include "words.h"

namespace sim {

// Reads a fault: WHERE [nth N | every] ACTION [performed], up to the end of the line. Throws
// SceneError.
Fault parseFault(WordReader &words);

} // namespace sim

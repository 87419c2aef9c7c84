#pragma once

#include "capturedevice.h"
#include "scene.h"

#include <string>

namespace sim {

// What devices hold from one run of the simulator to the next, in a directory with a folder for
// each device: its memories, and state.scene, which says in the words of a scene what is otherwise
// than the scene has it.

// Changes the scene's devices to what they were at the end of the run before; one that the
// directory does not know stays as the scene has it. Throws SceneError.
void restoreState(Scene &scene, const std::string &directory);

// Keeps the device for the next run. Power is cycled between two runs. Throws std::runtime_error.
void keepState(CaptureDevice &device, const std::string &directory);

} // namespace sim

#pragma once

#include "scene.h"

#include <string>
#include <vector>

namespace sim {

struct SimulationOptions
{
    bool verbose = false;
    std::string stateDirectory; // where the devices are kept for the next run; empty: nowhere
};

// Shows the scene to the program, runs it to its end, and returns the exit code for it. Throws
// std::runtime_error when the simulator itself cannot work.
int runSimulation(const Scene &scene, const std::vector<std::string> &program,
                  const SimulationOptions &options);

} // namespace sim

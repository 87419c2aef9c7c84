#pragma once

#include <mutex>

namespace sim {

// umockdev calls the handlers of ioctls from a thread of its own, while the control channel,
// signals and some timers come from the main loop. Whoever comes in from outside takes this lock;
// everything inside may then be written as if there were one thread. Recursive, since letting go of
// a client can call back at once.
inline std::recursive_mutex simulationMutex;

class SimulationLock
{
public:
    SimulationLock() { simulationMutex.lock(); }
    ~SimulationLock() { simulationMutex.unlock(); }
    SimulationLock(const SimulationLock &) = delete;
    SimulationLock &operator=(const SimulationLock &) = delete;
};

} // namespace sim

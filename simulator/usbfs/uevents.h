#pragma once

#include <string>
#include <utility>
#include <vector>

namespace sim {

using UeventProperties = std::vector<std::pair<std::string, std::string>>;

// Tells every udev monitor of the programs in the test bed at root, as the udev daemon would.
// (umockdev's own function does so only from inside its preload.)
void sendUevent(const std::string &root, const UeventProperties &properties);

// The message that a udev monitor expects.
std::string ueventMessage(const UeventProperties &properties);

} // namespace sim

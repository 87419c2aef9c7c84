#include "arguments.h"

#include <algorithm>

std::vector<std::string> argumentsOf(int argc, char **argv)
{
    return std::vector<std::string>(argv + std::min(argc, 1), argv + argc);
}

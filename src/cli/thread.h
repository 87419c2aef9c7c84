#pragma once

#include "cli.h"

#include <stdexcept>

// Throws where the system gives no thread: the limit of processes is reached.
inline void requireThread(bool given)
{
    if (!given) {
        throw std::runtime_error(Cli::tr("the system gives this program no thread").toStdString());
    }
}

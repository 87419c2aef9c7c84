#pragma once

#include <QCoreApplication>

// tr() for the texts that only the command line's program has.
struct Cli
{
    Q_DECLARE_TR_FUNCTIONS(Cli)
};

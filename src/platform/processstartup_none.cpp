#include "processstartup.h"

// The system's loader looks for libraries where the system's packages put them, and the log has its
// terminal.

void platform::prepare_process()
{
}

void platform::drop_toolkit_options(int &, char **)
{
}

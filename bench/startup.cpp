// The program as it is, but for an end after its first paint.

#include "firstpaint.h"

namespace {

void watchFirstPaint()
{
    FirstPaint::watch();
}

} // namespace
Q_COREAPP_STARTUP_FUNCTION(watchFirstPaint)

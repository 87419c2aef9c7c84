// The program as it is, but for an end after its first paint.

#include "firstpaint.h"

static void watchFirstPaint()
{
    FirstPaint::watch();
}
Q_COREAPP_STARTUP_FUNCTION(watchFirstPaint)

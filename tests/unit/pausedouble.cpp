#include "pause.h"

#include "scriptedlibusb.h"

// Takes no time; the pause stands in the call log where it would have been.
void pause_seconds(unsigned seconds)
{
    ScriptedUsb::note(QStringLiteral("pause %1").arg(seconds));
}

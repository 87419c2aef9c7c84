#include "pause.h"

#include <QThread>

void pause_seconds(unsigned seconds)
{
    QThread::sleep(seconds);
}

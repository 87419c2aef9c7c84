#include "images.h"

#include <QtGlobal>

void init_images()
{
    Q_INIT_RESOURCE(qrlupdater);
}

#include "libusbtexts.h"

#include <libusb.h>

QString libusbText(int code)
{
    return QString::fromUtf8(libusb_strerror(code));
}

#include "context.h"

#include "usbaccess.h"

#include <libusb.h>

namespace usb {

namespace {

void setMessages(Context::Messages messages)
{
    const int level =
        messages == Context::Messages::None ? LIBUSB_LOG_LEVEL_NONE : LIBUSB_LOG_LEVEL_WARNING;
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif
    libusb_set_debug(nullptr, level);
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
}

} // namespace

Context::Context(Messages messages) : ready(libusb_init(nullptr) >= 0)
{
    set_context_ready(ready);
    if (ready) {
        setMessages(messages);
    }
}

Context::~Context()
{
    if (ready) {
        libusb_exit(nullptr);
    }
}

} // namespace usb

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

Context::Sink s_sink = nullptr;

void LIBUSB_CALL passOn(libusb_context * /*context*/, libusb_log_level /*level*/, const char *text)
{
    s_sink(text);
}

// Before the context is made, which may have something to say itself.
int initialise(Context::Sink sink)
{
    if (sink) {
        s_sink = sink;
        libusb_set_log_cb(nullptr, passOn, LIBUSB_LOG_CB_GLOBAL);
    }
    return libusb_init(nullptr);
}

} // namespace

Context::Context(Messages messages, Sink sink) : ready(initialise(sink) >= 0)
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

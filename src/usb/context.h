#pragma once

namespace usb {

// libusb's default context, which every libusb call of a program uses. A program makes one before
// anything that talks to USB and lets it outlive all of that. Without a context (no USB bus, say)
// the program runs all the same and finds no device. Main thread.
class Context
{
public:
    // Where libusb's own messages go, one line each with its end. Called on any thread; it must not
    // call libusb.
    using Sink = void (*)(const char *text);

    // What libusb itself may print.
    enum class Messages {
        None,
        Warnings,
    };

    // Without a sink it prints on standard error.
    explicit Context(Messages messages, Sink sink = nullptr);
    ~Context();
    Context(const Context &) = delete;
    Context &operator=(const Context &) = delete;

private:
    bool ready;
};

} // namespace usb

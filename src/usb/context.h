#pragma once

namespace usb {

// libusb's default context, which every libusb call of a program uses. A program makes one before
// anything that talks to USB and lets it outlive all of that. Without a context (no USB bus, say)
// the program runs all the same and finds no device. Main thread.
class Context
{
public:
    // What libusb itself may print on standard error.
    enum class Messages {
        None,
        Warnings,
    };

    explicit Context(Messages messages);
    ~Context();
    Context(const Context &) = delete;
    Context &operator=(const Context &) = delete;

private:
    bool ready;
};

} // namespace usb

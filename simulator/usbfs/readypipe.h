#pragma once

#include <string>

namespace sim {

// The device node. libusb waits for a usbfs file to become writable, which says that a transfer can
// be reaped. A FIFO whose buffer is full is not writable, a drained one is; a regular file, always
// writable, would make libusb spin while a transfer is pending.
class ReadyPipe
{
public:
    // Creates the FIFO and the directories above it. Throws std::runtime_error.
    explicit ReadyPipe(const std::string &path);
    ~ReadyPipe();
    ReadyPipe(const ReadyPipe &) = delete;
    ReadyPipe &operator=(const ReadyPipe &) = delete;

    // Shows or hides that something can be reaped, to all who have the node open.
    void setReady(bool ready);
    // Whether programs may open the node.
    void setAccess(bool granted);
    // Takes the node away, or puts it back; those who have it open keep their file.
    void setMissing(bool missing);

private:
    std::string path;
    bool isMissing = false;
    int fd = -1;
    bool isReady = true; // a new FIFO is empty
};

} // namespace sim

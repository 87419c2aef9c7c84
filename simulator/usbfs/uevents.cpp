#include "uevents.h"

#include <arpa/inet.h>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace sim {
namespace {

// The header of a message from the udev daemon to its listeners. Magic and hashes are in network
// byte order.
struct MonitorHeader
{
    char prefix[8] = "libudev";
    uint32_t magic = htonl(0xFEEDCAFE);
    uint32_t headerSize = sizeof(MonitorHeader);
    uint32_t propertiesOffset = sizeof(MonitorHeader);
    uint32_t propertiesSize = 0;
    uint32_t subsystemHash = 0;
    uint32_t devtypeHash = 0;
    uint32_t tagBloomHigh = 0;
    uint32_t tagBloomLow = 0;
};

// MurmurHash2 with seed 0, by which listeners filter for subsystem and device type.
uint32_t murmurHash2(const std::string &text)
{
    constexpr uint32_t mix = 0x5BD1E995;
    uint32_t hash = static_cast<uint32_t>(text.size());
    size_t at = 0;
    for (; text.size() - at >= 4; at += 4) {
        uint32_t word = 0;
        std::memcpy(&word, &text[at], sizeof word);
        word *= mix;
        word ^= word >> 24;
        word *= mix;
        hash = hash * mix ^ word;
    }
    const size_t rest = text.size() - at;
    for (size_t i = rest; i > 0; --i) {
        hash ^= static_cast<uint32_t>(static_cast<uint8_t>(text[at + i - 1])) << (8 * (i - 1));
    }
    if (rest > 0) {
        hash *= mix;
    }
    hash = (hash ^ hash >> 13) * mix;
    return hash ^ hash >> 15;
}

void sendTo(const std::string &socketPath, const std::string &message)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (socketPath.size() >= sizeof address.sun_path) {
        return;
    }
    socketPath.copy(address.sun_path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    // A listener that is gone or does not listen misses the message, as with the real daemon.
    const auto *target = reinterpret_cast<const sockaddr *>(&address);
    (void)sendto(fd, message.data(), message.size(), MSG_DONTWAIT, target, sizeof address);
    close(fd);
}

} // namespace

std::string ueventMessage(const UeventProperties &properties)
{
    MonitorHeader header;
    std::string body;
    for (const auto &[key, value] : properties) {
        body.append(key).append("=").append(value).push_back('\0');
        if (key == "SUBSYSTEM") {
            header.subsystemHash = htonl(murmurHash2(value));
        }
        if (key == "DEVTYPE") {
            header.devtypeHash = htonl(murmurHash2(value));
        }
    }
    header.propertiesSize = static_cast<uint32_t>(body.size());
    return std::string(reinterpret_cast<const char *>(&header), sizeof header) + body;
}

void sendUevent(const std::string &root, const UeventProperties &properties)
{
    const std::string message = ueventMessage(properties);
    for (const auto &entry : std::filesystem::directory_iterator(root)) {
        if (entry.path().filename().string().rfind("event", 0) == 0) {
            sendTo(entry.path().string(), message);
        }
    }
}

} // namespace sim

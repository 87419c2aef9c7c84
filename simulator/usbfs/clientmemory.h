#pragma once

#include "bytes.h"

#include <cstring>
#include <memory>

using UMockdevIoctlData = struct _UMockdevIoctlData;
using UMockdevIoctlClient = struct _UMockdevIoctlClient;

namespace sim {

// A piece of the program's memory, fetched while one of its ioctls waits. It may be kept, and
// written back during a later ioctl of the same file.
class ClientMemory
{
public:
    // What the argument of the client's ioctl points at.
    static ClientMemory ofArgument(UMockdevIoctlClient *client, size_t size);
    // The argument itself, for ioctls that pass a number or an opaque pointer.
    static uint64_t argumentValue(UMockdevIoctlClient *client);

    ClientMemory() = default;
    // What the pointer at this offset points at; empty when it cannot be read.
    ClientMemory follow(size_t offset, size_t size) const;

    explicit operator bool() const { return data != nullptr; }
    uint64_t address() const;
    Bytes bytes() const;
    template<typename T> T as() const
    {
        T value = {};
        const Bytes content = bytes();
        if (content.size() >= sizeof value) {
            std::memcpy(&value, content.data(), sizeof value);
        }
        return value;
    }
    void write(size_t offset, const void *from, size_t size) const;
    // Writes the other memory's address at the start of this one.
    void writePointerTo(const ClientMemory &other) const;

private:
    struct Unref
    {
        void operator()(UMockdevIoctlData *memory) const;
    };
    explicit ClientMemory(UMockdevIoctlData *memory) : data(memory, Unref()) {}

    std::shared_ptr<UMockdevIoctlData> data;
};

} // namespace sim

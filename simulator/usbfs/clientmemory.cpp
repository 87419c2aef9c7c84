#include "clientmemory.h"

#include <umockdev.h>

namespace sim {

void ClientMemory::Unref::operator()(UMockdevIoctlData *memory) const
{
    if (memory) {
        g_object_unref(memory);
    }
}

ClientMemory ClientMemory::ofArgument(UMockdevIoctlClient *client, size_t size)
{
    // The argument is kept by the client; only what it points at is fetched anew.
    UMockdevIoctlData *argument = umockdev_ioctl_client_get_arg(client);
    GError *error = nullptr;
    UMockdevIoctlData *target = umockdev_ioctl_data_resolve(argument, 0, size, &error);
    g_clear_error(&error);
    return ClientMemory(target);
}

uint64_t ClientMemory::argumentValue(UMockdevIoctlClient *client)
{
    const UMockdevIoctlData *argument = umockdev_ioctl_client_get_arg(client);
    uint64_t value = 0;
    if (argument->data_len >= static_cast<int>(sizeof value)) {
        std::memcpy(&value, argument->data, sizeof value);
    }
    return value;
}

ClientMemory ClientMemory::follow(size_t offset, size_t size) const
{
    if (!data) {
        return {};
    }
    GError *error = nullptr;
    UMockdevIoctlData *target = umockdev_ioctl_data_resolve(data.get(), offset, size, &error);
    g_clear_error(&error);
    return ClientMemory(target);
}

uint64_t ClientMemory::address() const
{
    return data ? data->client_addr : 0;
}

Bytes ClientMemory::bytes() const
{
    if (!data) {
        return {};
    }
    return Bytes(data->data, data->data + data->data_len);
}

void ClientMemory::write(size_t offset, const void *from, size_t size) const
{
    if (!data || size == 0 || offset + size > static_cast<size_t>(data->data_len)) {
        return;
    }
    const auto *source = static_cast<const guint8 *>(from);
    umockdev_ioctl_data_update(data.get(), offset, const_cast<guint8 *>(source),
                               static_cast<gint>(size));
}

void ClientMemory::writePointerTo(const ClientMemory &other) const
{
    if (data && other.data) {
        umockdev_ioctl_data_set_ptr(data.get(), 0, other.data.get());
    }
}

} // namespace sim

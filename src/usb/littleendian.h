#pragma once

#include <QtEndian>

// An unsigned number as it stands on the wire and in boot images. It has no alignment, so a record
// of these has no gaps.
template<typename T> struct LittleEndian
{
    quint8 bytes[sizeof(T)];

    operator T() const { return qFromLittleEndian<T>(bytes); }
    LittleEndian &operator=(T value)
    {
        qToLittleEndian<T>(value, bytes);
        return *this;
    }
};

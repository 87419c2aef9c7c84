#include "sessionhold.h"

namespace platform {

class SessionHold::System
{
};

SessionHold::SessionHold(quintptr, const QString &, QObject *parent) : QObject(parent)
{
}

SessionHold::SessionHold(const QString &)
{
}

SessionHold::~SessionHold() = default;

} // namespace platform

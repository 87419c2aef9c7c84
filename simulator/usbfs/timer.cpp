#include "timer.h"

#include <glib.h>

#include <utility>

namespace sim {

void Timer::start(unsigned ms, std::function<void()> call)
{
    cancel();
    pending = std::move(call);
    source = g_timeout_add(ms, &Timer::fire, this);
}

void Timer::cancel()
{
    if (source)
        g_source_remove(source);
    source = 0;
    pending = nullptr;
}

int Timer::fire(void *self)
{
    // The call may destroy the timer, so nothing of it is touched afterwards.
    auto *timer = static_cast<Timer *>(self);
    timer->source = 0;
    const std::function<void()> call = std::exchange(timer->pending, nullptr);
    call();
    return G_SOURCE_REMOVE;
}

} // namespace sim

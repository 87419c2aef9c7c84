#include "timer.h"

#include "simulationlock.h"

#include <glib.h>

#include <utility>

namespace sim {

void Timer::start(unsigned ms, std::function<void()> call)
{
    cancel();
    shot = std::make_shared<Shot>();
    shot->call = std::move(call);
    source = g_timeout_source_new(ms);
    g_source_set_callback(source, &Timer::fire, new std::shared_ptr<Shot>(shot),
                          [](void *owned) { delete static_cast<std::shared_ptr<Shot> *>(owned); });
    g_source_attach(source, g_main_context_get_thread_default());
}

void Timer::cancel()
{
    if (shot) {
        shot->cancelled = true;
    }
    shot.reset();
    if (source) {
        g_source_destroy(source);
        g_source_unref(source);
    }
    source = nullptr;
}

int Timer::fire(void *owned)
{
    const SimulationLock lock;
    // The call may destroy the timer, so only the shot is touched.
    const std::shared_ptr<Shot> fired = *static_cast<std::shared_ptr<Shot> *>(owned);
    if (!fired->cancelled) {
        fired->call();
    }
    return G_SOURCE_REMOVE;
}

} // namespace sim

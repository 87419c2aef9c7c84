#pragma once

#include <functional>
#include <memory>

struct _GSource;

namespace sim {

// Calls once after a time, under the simulation's lock, in the thread that started it; not at all
// when it is destroyed or set anew before. To be used under the lock.
class Timer
{
public:
    Timer() = default;
    ~Timer() { cancel(); }
    Timer(const Timer &) = delete;
    Timer &operator=(const Timer &) = delete;

    void start(unsigned ms, std::function<void()> call);
    void cancel();

private:
    // Outlives the timer while the other thread is about to look at it.
    struct Shot
    {
        std::function<void()> call;
        bool cancelled = false;
    };
    static int fire(void *shot);

    _GSource *source = nullptr;
    std::shared_ptr<Shot> shot;
};

} // namespace sim

#pragma once

#include <functional>

namespace sim {

// Calls once after a time, from the main loop; not at all when it is destroyed or set anew before.
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
    static int fire(void *self);

    unsigned source = 0;
    std::function<void()> pending;
};

} // namespace sim

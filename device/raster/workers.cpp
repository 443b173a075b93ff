// The pool's words. A piece begins with taken_ at 0 and ends with unfinished_ at 0; round_ wakes who sleeps, and is no
// more than a hint: whoever wakes finds by taken_ whether anything is left.

#include "device/raster/workers.h"

#include "device/raster/batches.h"
#include "device/raster/pictures.h"

namespace kalix::device::raster {

worker_pool::worker_pool(uint32_t count, const std::function<std::thread(std::function<void()>)>& start)
    : memory_{std::make_unique<draw_memory>()}, taken_{count}
{
    // A thread that has started must get its place without fail: nobody else could join it.
    threads_.reserve(count);
    try {
        while (threads_.size() + 1 < count)
            threads_.push_back(start([this] { serve(); }));
    } catch (...) {
        end();
        throw;
    }
}

worker_pool::~worker_pool()
{
    end();
}

void worker_pool::end()
{
    ending_.store(true, std::memory_order_relaxed);
    round_.add(1);
    for (std::thread& each : threads_)
        each.join();
}

// A part is taken by raising taken_, which run() lowers to begin the next piece: whoever takes one of its parts has
// seen the work, however late it woke.
bool worker_pool::take_part()
{
    const uint32_t part = taken_.fetch_add(1, std::memory_order_acquire);
    if (part >= count())
        return false;
    call_(work_, part);
    // Less one. What the part wrote is seen by who finds the number 0.
    unfinished_.add(~0u);
    return true;
}

void worker_pool::run_parts()
{
    // In this order: a part can be taken as soon as taken_ is 0, by a thread that is still awake from the piece before.
    unfinished_.store(count());
    taken_.store(0, std::memory_order_release);
    round_.add(1);
    while (take_part()) {
    }
    for (uint32_t left; (left = unfinished_.load()) != 0;)
        unfinished_.wait_for_change(left);
}

void worker_pool::serve()
{
    prepare_pictures();
    for (uint32_t seen = 0;;) {
        round_.wait_for_change(seen);
        seen = round_.load();
        if (ending_.load(std::memory_order_relaxed))
            return;
        while (take_part()) {
        }
    }
}

} // namespace kalix::device::raster

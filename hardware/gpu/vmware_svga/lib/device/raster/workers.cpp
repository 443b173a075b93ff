#include "hardware/gpu/vmware_svga/lib/device/raster/workers.h"

#include "hardware/gpu/vmware_svga/lib/device/raster/batches.h"

namespace kalix::device::raster {
namespace {

// A draw follows the last within microseconds or not for long: look a while, then sleep.
constexpr int looks = 2000;

} // namespace

void wait_for_other(const std::atomic<uint32_t>& value, uint32_t known)
{
    for (int i = 0; i < looks; ++i) {
        if (value.load(std::memory_order_acquire) != known)
            return;
        if (i % 64 == 63)
            std::this_thread::yield();
    }
    value.wait(known, std::memory_order_acquire);
}

worker_pool::worker_pool(uint32_t count, const std::function<std::thread(std::function<void()>)>& start)
    : memory_{std::make_unique<draw_memory>()}, taken_{count}
{
    while (threads_.size() + 1 < count)
        threads_.push_back(start([this] { serve(); }));
}

worker_pool::~worker_pool()
{
    ending_.store(true, std::memory_order_relaxed);
    round_.fetch_add(1, std::memory_order_release);
    round_.notify_all();
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
    (*work_)(part);
    if (unfinished_.fetch_sub(1, std::memory_order_acq_rel) == 1)
        unfinished_.notify_one();
    return true;
}

void worker_pool::run(const std::function<void(uint32_t index)>& work)
{
    work_ = &work;
    unfinished_.store(count(), std::memory_order_relaxed);
    taken_.store(0, std::memory_order_release);
    round_.fetch_add(1, std::memory_order_release);
    round_.notify_all();
    while (take_part()) {
    }
    for (uint32_t left = unfinished_.load(std::memory_order_acquire); left != 0;
         left = unfinished_.load(std::memory_order_acquire))
        wait_for_other(unfinished_, left);
}

void worker_pool::serve()
{
    for (uint32_t seen = 0;;) {
        wait_for_other(round_, seen);
        seen = round_.load(std::memory_order_acquire);
        if (ending_.load(std::memory_order_relaxed))
            return;
        while (take_part()) {
        }
    }
}

} // namespace kalix::device::raster

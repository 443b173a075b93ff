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
    : memory_{std::make_unique<draw_memory>()}
{
    for (uint32_t index = 1; index < count; ++index)
        threads_.push_back(start([this, index] { serve(index); }));
}

worker_pool::~worker_pool()
{
    ending_.store(true, std::memory_order_relaxed);
    round_.fetch_add(1, std::memory_order_release);
    round_.notify_all();
    for (std::thread& each : threads_)
        each.join();
}

void worker_pool::run(const std::function<void(uint32_t index)>& work)
{
    if (!threads_.empty()) {
        work_ = &work;
        busy_.store(static_cast<uint32_t>(threads_.size()), std::memory_order_relaxed);
        round_.fetch_add(1, std::memory_order_release);
        round_.notify_all();
    }
    work(0);
    for (uint32_t left = busy_.load(std::memory_order_acquire); left != 0; left = busy_.load(std::memory_order_acquire))
        wait_for_other(busy_, left);
}

void worker_pool::serve(uint32_t index)
{
    for (uint32_t seen = 0;;) {
        wait_for_other(round_, seen);
        seen = round_.load(std::memory_order_acquire);
        if (ending_.load(std::memory_order_relaxed))
            return;
        (*work_)(index);
        if (busy_.fetch_sub(1, std::memory_order_acq_rel) == 1)
            busy_.notify_one();
    }
}

} // namespace kalix::device::raster

// Threads that share a draw's work with the one that fetches.
//
// The fetching thread hands out one piece of work at a time and takes part in it; all have finished it when
// run() returns, so nothing is shared between two pieces. The memory that a draw needs for its vertices stays
// here for the next one. Owned by the device.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace kalix::device::raster {

struct draw_memory; // batches.h

// Waits until the value is another than the one known: a while on the processor, then asleep until notified.
void wait_for_other(const std::atomic<uint32_t>& value, uint32_t known);

class worker_pool {
public:
    // Starts count - 1 threads by a function that is given their body; 0 counts as 1.
    worker_pool(uint32_t count, const std::function<std::thread(std::function<void()>)>& start);
    ~worker_pool();
    worker_pool(const worker_pool&) = delete;
    worker_pool& operator=(const worker_pool&) = delete;

    uint32_t count() const { return static_cast<uint32_t>(threads_.size()) + 1; }

    // Calls work(0) on this thread and work(1) to work(count - 1) on the others, and waits for all.
    void run(const std::function<void(uint32_t index)>& work);

    draw_memory& memory() { return *memory_; } // of the draw that runs

private:
    void serve(uint32_t index);

    std::unique_ptr<draw_memory> memory_;
    std::vector<std::thread> threads_;
    const std::function<void(uint32_t)>* work_ = nullptr; // written before the round begins
    std::atomic<uint32_t> round_ = 0;                     // raised for each piece, and at the end
    std::atomic<uint32_t> busy_ = 0;                      // threads that have not finished it
    std::atomic<bool> ending_ = false;
};

} // namespace kalix::device::raster

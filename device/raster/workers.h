// Threads that share a draw's work with the one that fetches.
//
// The fetching thread hands out one piece of work at a time, in parts; it and whoever else is free take one after the
// other. On a busy machine a thread may wake late: its part is done by then, and it is not waited for. All parts are
// finished when run() returns, so nothing is shared between two pieces. The memory that a draw needs for its vertices
// stays here for the next one. Owned by the device; only the fetching thread calls it, so there is no lock: the words
// below order everything.
#pragma once

#include "base/futex.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace kalix::device::raster {

struct draw_memory; // batches.h

class worker_pool {
public:
    // Starts count - 1 threads by a function that is given their body; 0 counts as 1.
    worker_pool(uint32_t count, const std::function<std::thread(std::function<void()>)>& start);
    ~worker_pool();
    worker_pool(const worker_pool&) = delete;
    worker_pool& operator=(const worker_pool&) = delete;

    uint32_t count() const { return static_cast<uint32_t>(threads_.size()) + 1; }

    // Calls work(0) to work(count - 1) on this thread and the others. A part may wait until another one gets on, which
    // a thread of its own will take if need be.
    // It allocates nothing, and the work may not throw.
    template <typename function>
    void run(const function& work)
    {
        work_ = &work;
        call_ = [](const void* of, uint32_t index) { (*static_cast<const function*>(of))(index); };
        run_parts();
    }

    draw_memory& memory() { return *memory_; } // of the draw that runs

private:
    void run_parts();
    void serve();
    void end();
    // Takes the next part and does it; false when none is left.
    bool take_part();

    std::unique_ptr<draw_memory> memory_;
    std::vector<std::thread> threads_;
    const void* work_ = nullptr; // written before parts can be taken, as is call_
    void (*call_)(const void* work, uint32_t index) = nullptr;
    std::atomic<uint32_t> taken_ = 0; // parts; count() and above between two pieces
    awaited_word unfinished_;         // parts
    awaited_word round_;              // raised for each piece, and at the end
    std::atomic<bool> ending_ = false;
};

} // namespace kalix::device::raster

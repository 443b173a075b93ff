// The software device: the bus's far side.
//
// Owns FIFO memory, the device's state and the fetching thread, which runs from the construction to the destruction.
// execution_lock guards the state: the fetching thread holds it for the length of one command, register writes that
// change the state take it too. register_lock guards the registers and is taken inside execution_lock, never around it;
// so reading a register never waits for a drawing command.
//
// The driver's side calls everything but the private part, from any of its threads. Its memories, FIFO and framebuffer,
// are what both sides write: the FIFO's registers as atomic words, the ring by the order of NEXT_CMD and STOP
// (svga/bus.h), the framebuffer by whoever draws. fetch.h is the way from the ring to commands, registers.cpp has the
// registers.
#pragma once

#include "base/futex.h"
#include "base/lock.h"
#include "device/commands/ring.h"
#include "device/raster/workers.h"
#include "device/state/state.h"
#include "svga/bus.h"

#include <atomic>
#include <memory>
#include <thread>

namespace kalix::device {

// Registers that hold what was written, and the mode that they show.
struct register_values {
    mode wanted = first_mode; // kept until ENABLE is written
    mode current = first_mode;
    bool is_wanted = false; // a size or depth was written since
    uint32_t enabled = 0;
    uint32_t guest_id = 0;
    uint32_t selected_region = 0;
    uint32_t traces = 0;
};

class software_device final : public svga_bus {
public:
    // The options have been checked.
    explicit software_device(const device_options& options);
    ~software_device() override;
    software_device(const software_device&) = delete;
    software_device& operator=(const software_device&) = delete;

    uint32_t read_register(uint32_t index) override;
    void write_register(uint32_t index, uint32_t value) override;
    std::span<uint32_t> fifo() override { return {fifo_.get(), fifo_words}; }
    std::span<std::byte> framebuffer() override { return framebuffer_; }
    void ring_doorbell() override;
    void wait_for_stop_change(uint32_t stop) override;
    void wait_for_fence_change(uint32_t fence) override;
    void count_refused_mode() override;
    void count_refused_cursor() override;

private:
    friend struct register_access;

    static constexpr size_t fifo_words = (SVGA_FIFO_RING_START + SVGA_FIFO_RING_BYTES) / sizeof(uint32_t);

    void initialise_fifo();
    void fetch();
    void run_ring();
    void follow_cursor() KALIX_REQUIRES(execution_lock_);
    void refuse_mode() KALIX_REQUIRES(execution_lock_);

    const device_options options_;
    // Zeroed without being touched: most of the ring has no pages until commands reach it.
    std::unique_ptr<uint32_t[], void (*)(void*)> fifo_;
    sleepers stop_waiters_, fence_waiters_; // on the FIFO registers STOP and FENCE
    ring_reader ring_;                      // used by the fetching thread alone
    mutex execution_lock_;
    raster::worker_pool workers_; // used by the fetching thread alone
    device_state state_ KALIX_GUARDED_BY(execution_lock_);
    // The screen's, noted at the start and not changed any more, so that it can be asked for without a lock.
    std::span<std::byte> framebuffer_;
    mutex register_lock_;
    register_values registers_ KALIX_GUARDED_BY(register_lock_);
    uint32_t cursor_count_ KALIX_GUARDED_BY(execution_lock_) = 0; // of the last position that was taken over
    std::atomic<bool> configured_{false};                         // the ring may be read
    std::atomic<bool> stopping_{false};
    awaited_word doorbell_; // raised by each ring
    std::thread fetching_;  // last: it uses all of the above
};

} // namespace kalix::device

// The software device's life: its memory, its threads, and the loop that reads the ring.

#include "device/software_device.h"

#include "device/fetch.h"
#include "device/raster/pictures.h"
#include "device/state/capabilities.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <new>
#include <pthread.h>
#include <system_error>

namespace kalix::device {
namespace {

constexpr uint32_t fifo_capabilities =
    SVGA_FIFO_CAP_FENCE | SVGA_FIFO_CAP_CURSOR_BYPASS_3 | SVGA_FIFO_CAP_RESERVE | SVGA_FIFO_CAP_GMR2;

constexpr int error = 2;

// Keeps signals from a thread that is started meanwhile: they are the business of the process's other threads.
class signals_held {
public:
    signals_held()
    {
        sigset_t all;
        sigfillset(&all);
        // A fault belongs to the thread that meets it.
        for (const int fault : {SIGBUS, SIGSEGV, SIGFPE, SIGILL, SIGTRAP, SIGABRT})
            sigdelset(&all, fault);
        pthread_sigmask(SIG_BLOCK, &all, &before_);
    }
    ~signals_held() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    signals_held(const signals_held&) = delete;
    signals_held& operator=(const signals_held&) = delete;

private:
    sigset_t before_;
};

std::thread start_without_signals(auto&& body, const char* name)
{
    const signals_held held;
    std::thread started{std::forward<decltype(body)>(body)};
    pthread_setname_np(started.native_handle(), name);
    return started;
}

// As many as asked for, or as there are cores, at most two: the driver and its clients need cores as well.
uint32_t drawing_threads(uint32_t asked)
{
    constexpr uint32_t most = 2;
    return asked != 0 ? asked : std::clamp(std::thread::hardware_concurrency(), 1u, most);
}

} // namespace

software_device::software_device(const device_options& options)
    : options_{options}, fifo_{static_cast<uint32_t*>(std::calloc(fifo_words, sizeof(uint32_t))), std::free},
      ring_{{fifo_.get(), fifo_words}, stop_waiters_}, workers_{drawing_threads(options.threads),
                                                                [](std::function<void()> body) {
                                                                    return start_without_signals(std::move(body),
                                                                                                 "svga-draw");
                                                                }},
      state_{options.framebuffer_bytes,
             options.surface_memory_bytes,
             options.page_address ? options.page_address : page_in_own_memory,
             options.log,
             std::span{fifo_.get(), fifo_words},
             fence_waiters_}
{
    // Members have taken the FIFO's address and not looked behind it, so asking here is early enough.
    if (!fifo_ || !state_.display)
        throw std::bad_alloc{};
    framebuffer_ = state_.display.framebuffer();
    initialise_fifo();
    // Only the thread's start can fail now; the members undo themselves then.
    state_.workers = &workers_;
    fetching_ = start_without_signals([this] { fetch(); }, "svga-fetch");
}

software_device::~software_device()
{
    // The bell wakes a fetching thread that sleeps; one that executes a command finishes it. It ends before any member.
    stopping_.store(true, std::memory_order_release);
    ring_doorbell();
    fetching_.join();
}

void software_device::initialise_fifo()
{
    // Plain stores: the fetching thread is not started yet, and the bus not handed out.
    const std::span<uint32_t> words = fifo();
    words[SVGA_FIFO_MIN] = ring_begin;
    words[SVGA_FIFO_MAX] = ring_end;
    words[SVGA_FIFO_NEXT_CMD] = ring_begin;
    words[SVGA_FIFO_STOP] = ring_begin;
    words[SVGA_FIFO_CAPABILITIES] = fifo_capabilities;
    words[SVGA_FIFO_3D_HWVERSION] = SVGA3D_HWVERSION_2_1;
    write_capabilities(words.subspan<SVGA_FIFO_3D_CAPS, capability_area_words>());
}

void software_device::ring_doorbell()
{
    doorbell_.add(1);
}

void software_device::wait_for_stop_change(uint32_t stop)
{
    stop_waiters_.wait_for_change(fifo_[SVGA_FIFO_STOP], stop);
}

void software_device::wait_for_fence_change(uint32_t fence)
{
    fence_waiters_.wait_for_change(fifo_[SVGA_FIFO_FENCE], fence);
}

// The doorbell is read before the ring is: what is written after the ring was found empty rings again.
void software_device::fetch()
{
    raster::prepare_pictures();
    while (!stopping_.load(std::memory_order_acquire)) {
        const uint32_t rung = doorbell_.load();
        run_ring();
        {
            const hold locked{execution_lock_};
            follow_cursor();
        }
        doorbell_.wait_for_change(rung);
    }
}

// STOP moves once a command is executed, so whoever sees the ring empty finds everything done, and the counters of it
// shown. They are copied to the screen where somebody may have waited, at fences and when the ring has run empty, and
// not after every command. The lock is given back between commands, so that a register write comes in between.
void software_device::run_ring()
{
    while (configured_.load(std::memory_order_acquire) && !stopping_.load(std::memory_order_acquire)) {
        const uint32_t available = ring_.available();
        if (available == 0)
            return;
        uint32_t taken = 0;
        {
            const hold locked{execution_lock_};
            taken = execute_next(state_, ring_, available);
            follow_cursor();
            if (taken == available)
                publish_counters(state_);
        }
        ring_.consume(taken);
    }
}

// The count is read before the place. A move that comes in between is taken in half; it raises the count after that,
// and rings, so that the whole of it is taken then.
void software_device::follow_cursor()
{
    const uint32_t count = fifo_load(fifo(), SVGA_FIFO_CURSOR_COUNT);
    if (count == cursor_count_)
        return;
    cursor_count_ = count;
    state_.display.move_cursor(fifo_load(fifo(), SVGA_FIFO_CURSOR_ON) != 0, fifo_load(fifo(), SVGA_FIFO_CURSOR_X),
                               fifo_load(fifo(), SVGA_FIFO_CURSOR_Y));
}

void software_device::refuse_mode()
{
    state_.counts.refuse(KALIX_REFUSED_MODE, 0);
    publish_counters(state_);
}

void software_device::count_refused_mode()
{
    const hold locked{execution_lock_};
    refuse_mode();
}

void software_device::count_refused_cursor()
{
    const hold locked{execution_lock_};
    state_.counts.refuse(KALIX_REFUSED_CURSOR, SVGA_CMD_DEFINE_ALPHA_CURSOR);
    publish_counters(state_);
}

} // namespace kalix::device

namespace kalix {
namespace {

constexpr uint64_t framebuffer_bytes_max = uint64_t{1} << 30; // so that the FIFO's address behind it fits 32 bits

// One line with the reason; the library's caller sees only that there is no device.
std::unique_ptr<svga_bus> refuse_to_open(const device_options& options, const char* text)
{
    if (options.log)
        options.log(device::error, text);
    return nullptr;
}

} // namespace

std::unique_ptr<svga_bus> open_software_device(const device_options& options)
{
    if (!device::fits(device::first_mode, options.framebuffer_bytes))
        return refuse_to_open(options, "device: the framebuffer is too small for the first mode, 1024x768x32");
    if (options.framebuffer_bytes > framebuffer_bytes_max)
        return refuse_to_open(options, "device: the framebuffer is larger than 1024 MiB");
    try {
        return std::make_unique<device::software_device>(options);
    } catch (const std::bad_alloc&) {
        return refuse_to_open(options, "device: no memory for the screen and the FIFO");
    } catch (const std::system_error&) {
        return refuse_to_open(options, "device: no thread to read the FIFO");
    }
}

} // namespace kalix

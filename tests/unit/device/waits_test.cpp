// Waiting: every change is noticed, however the waiter and the changer meet, and no time slice is given away. A lost
// wake-up shows as a test that does not end.

#include "base/futex.h"
#include "device/raster/workers.h"
#include "tests/unit/device/support.h"

#include <thread>

namespace {
std::atomic<uint32_t> yields{0};
}

// NOLINTNEXTLINE: what every yield of the process comes to
extern "C" int sched_yield() noexcept
{
    ++yields;
    return 0;
}

namespace kalix::test {
namespace {

// Stays away for a moment: none, some looks, or long enough that whoever waits is asleep.
void dawdle(dice& random)
{
    const uint32_t kind = random.below(64);
    if (kind == 0)
        std::this_thread::sleep_for(std::chrono::microseconds{random.below(100)});
    for (uint32_t left = kind < 32 ? 0 : random.below(2 * looks_before_sleep); left != 0; --left)
        pause_briefly();
}

TEST(Waits, ARelayOfThreadsLosesNoChange)
{
    constexpr uint32_t runners = 4, laps = 5000;
    std::array<awaited_word, runners> batons;
    std::array<uint32_t, runners> carried{}; // by plain writes, which go before the baton
    std::vector<std::thread> threads;
    for (uint32_t runner = 0; runner < runners; ++runner)
        threads.emplace_back([&, runner] {
            dice random{runner};
            for (uint32_t lap = 0; lap < laps; ++lap) {
                batons[runner].wait_for_change(lap);
                const uint32_t next = (runner + 1) % runners;
                carried[next] = carried[runner] + 1;
                dawdle(random);
                if (next != 0 || lap + 1 < laps)
                    batons[next].add(1);
            }
        });
    batons[0].add(1);
    for (std::thread& each : threads)
        each.join();
    EXPECT_EQ(carried[0], runners * laps);
}

TEST(Waits, AllWhoWaitForAWordSeeItsLastValue)
{
    constexpr uint32_t waiters = 4, last = 20000;
    uint32_t word = 0;
    sleepers waiting;
    std::vector<std::thread> threads;
    for (uint32_t waiter = 0; waiter < waiters; ++waiter)
        threads.emplace_back([&] {
            for (uint32_t seen = 0; seen != last; seen = std::atomic_ref{word}.load(std::memory_order_acquire))
                waiting.wait_for_change(word, seen);
        });
    dice random;
    for (uint32_t value = 1; value <= last; ++value) {
        dawdle(random);
        waiting.store(word, value);
    }
    for (std::thread& each : threads)
        each.join();
}

using WaitsOfTheDevice = device_test;

TEST_F(WaitsOfTheDevice, GiveNoTimeSliceAway)
{
    const uint32_t before = yields;
    std::vector<uint32_t> fence{SVGA_CMD_FENCE, 0};
    for (fence[1] = 1; fence[1] <= 500; ++fence[1]) {
        run(stream{}.add_list(fence));
        ASSERT_EQ(fifo_load(bus->fifo(), SVGA_FIFO_FENCE), fence[1]);
    }
    dice random;
    std::vector<uint32_t> done(3);
    device::raster::worker_pool pool{3, [](std::function<void()> body) { return std::thread{std::move(body)}; }};
    for (uint32_t piece = 1; piece <= 500; ++piece) {
        pool.run([&](uint32_t part) { ++done[part]; });
        ASSERT_EQ(done, std::vector<uint32_t>(3, piece));
        dawdle(random);
    }
    EXPECT_EQ(yields, before);
}

} // namespace
} // namespace kalix::test

// Waiting for a word to change: a short look, then sleep in the kernel.
//
// Both the driver's side of the device and the device wait with it, and so do the threads that draw. Nothing here
// yields: on a busy machine a yield gives a whole time slice away, and a sleeper that is woken gets the processor
// soon. Whoever changes the word makes a system call only when somebody sleeps.
//
// Why no wake-up is lost: the waiter counts itself and then looks at the word (again in the kernel, which compares
// and begins to sleep in one step); the changer writes the word and then looks at the count. These four are
// sequentially consistent, so in their one order either the count comes first, and the changer sees the sleeper and
// wakes it, or the word does, and the waiter sees its change. A changer's writes before the change are seen by
// whoever saw the change.
#pragma once

#include <atomic>
#include <cstdint>
#include <limits>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kalix {

// Looks at a word before sleeping: some microseconds, about what falling asleep and being woken cost.
inline constexpr int looks_before_sleep = 100;

// Tells the processor that a loop waits for another one.
inline void pause_briefly()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("isb");
#endif
}

// Those who sleep until a word changes. They are kept apart from it, since it may be a register in shared memory.
class sleepers {
public:
    // Returns once the word is another value than old.
    void wait_for_change(uint32_t& word, uint32_t old)
    {
        for (int i = 0; i < looks_before_sleep; ++i) {
            if (std::atomic_ref{word}.load(std::memory_order_acquire) != old)
                return;
            pause_briefly();
        }
        count_.fetch_add(1, std::memory_order_seq_cst);
        while (std::atomic_ref{word}.load(std::memory_order_seq_cst) == old)
            syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, old, nullptr, nullptr, 0);
        // Too high for a moment costs a needless wake-up; nothing else hangs on it.
        count_.fetch_sub(1, std::memory_order_relaxed);
    }

    // Changes the word and wakes all who sleep until it does.
    void store(uint32_t& word, uint32_t value)
    {
        std::atomic_ref{word}.store(value, std::memory_order_seq_cst);
        wake(word);
    }
    // The same, by a sum that wraps; returns what the word was.
    uint32_t add(uint32_t& word, uint32_t value)
    {
        const uint32_t before = std::atomic_ref{word}.fetch_add(value, std::memory_order_seq_cst);
        wake(word);
        return before;
    }

private:
    void wake(uint32_t& word)
    {
        if (count_.load(std::memory_order_seq_cst) != 0)
            syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, std::numeric_limits<int>::max(), nullptr, nullptr, 0);
    }

    std::atomic<uint32_t> count_{0};
};

// A word of this process that threads wait for.
class awaited_word {
public:
    explicit awaited_word(uint32_t value = 0) : value_{value} {}

    uint32_t load() const { return std::atomic_ref{value_}.load(std::memory_order_acquire); }
    void store(uint32_t value) { sleepers_.store(value_, value); }
    uint32_t add(uint32_t value) { return sleepers_.add(value_, value); }
    void wait_for_change(uint32_t old) { sleepers_.wait_for_change(value_, old); }

private:
    mutable uint32_t value_; // an atomic reference is never to a constant
    sleepers sleepers_;
};

} // namespace kalix

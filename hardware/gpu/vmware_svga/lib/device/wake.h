// Waiting for a word to change: a short spin, then sleep in the kernel.
#pragma once

#include <atomic>
#include <cstdint>

namespace kalix::device {

// A change that comes at once, as from a fence behind a small command, is seen without a system call.
inline constexpr int spins = 400;

// Returns once the word is another value than old. word is an atomic or an atomic reference.
template <typename atomic_word>
void wait_for_change(const atomic_word& word, uint32_t old)
{
    for (int i = 0; i < spins; ++i)
        if (word.load(std::memory_order_acquire) != old)
            return;
    while (word.load(std::memory_order_acquire) == old)
        word.wait(old, std::memory_order_acquire);
}

} // namespace kalix::device

// Chance in tests, repeatable: one seed for a run, which a failure names.
#pragma once

#include "tests/support.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <initializer_list>
#include <random>
#include <vector>

namespace kalix::test {

// Draws numbers; what fails on its thread while it lives tells the seed. Also a generator for the library's algorithms.
class dice {
public:
    using result_type = uint32_t;
    static constexpr uint32_t min() { return 0; }
    static constexpr uint32_t max() { return ~0u; }

    explicit dice(uint32_t stream = 0) : engine_{test_seed() + stream} {}

    uint32_t operator()() { return static_cast<uint32_t>(engine_()); }
    uint32_t below(uint32_t limit) { return (*this)() % limit; } // limit is above 0
    bool toss() { return below(2) == 0; }
    float within(float low, float high) { return std::uniform_real_distribution<float>{low, high}(engine_); }
    template <typename type>
    type one_of(std::initializer_list<type> choices)
    {
        return choices.begin()[below(static_cast<uint32_t>(choices.size()))];
    }
    std::vector<uint32_t> words(size_t count)
    {
        std::vector<uint32_t> out(count);
        for (uint32_t& each : out)
            each = (*this)();
        return out;
    }

private:
    std::mt19937 engine_;
    testing::ScopedTrace named_{__FILE__, __LINE__, testing::Message() << "KALIX_TEST_SEED=" << test_seed()};
};

} // namespace kalix::test

// Conversions of floats to integers as the device and the wire want them: toward zero, saturated, and 0 for what is not
// a number. The language leaves a conversion of what an integer cannot hold undefined, and floats come from clients.
#pragma once

#include <cstdint>
#include <limits>

namespace kalix {

constexpr int32_t truncated(float value)
{
    // Only what is not a number differs from itself.
    if (value != value)
        return 0;
    // The largest integers are no floats: 2^31 and 2^32 are the first ones beyond, and exact.
    if (value >= 0x1p31f)
        return std::numeric_limits<int32_t>::max();
    return value <= -0x1p31f ? std::numeric_limits<int32_t>::min() : static_cast<int32_t>(value);
}

constexpr uint32_t truncated_unsigned(float value)
{
    if (!(value > 0))
        return 0;
    return value >= 0x1p32f ? std::numeric_limits<uint32_t>::max() : static_cast<uint32_t>(value);
}

static_assert(truncated(-1.9f) == -1 && truncated(3e9f) == INT32_MAX && truncated(-3e9f) == INT32_MIN);
static_assert(truncated_unsigned(-5) == 0 && truncated_unsigned(4e9f) == 4'000'000'000u);
static_assert(truncated_unsigned(std::numeric_limits<float>::quiet_NaN()) == 0 &&
              truncated(std::numeric_limits<float>::quiet_NaN()) == 0);

} // namespace kalix

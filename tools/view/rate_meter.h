// Counts frames and says once a second how many there were.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace kalix::view {

class rate_meter {
public:
    // Counts one; the rate, in frames a second, when a second has passed since it was last told.
    std::optional<double> count()
    {
        ++frames_;
        const auto now = std::chrono::steady_clock::now();
        const std::chrono::duration<double> passed = now - since_;
        if (passed.count() < 1)
            return std::nullopt;
        const double rate = static_cast<double>(frames_) / passed.count();
        since_ = now;
        frames_ = 0;
        return rate;
    }

private:
    std::chrono::steady_clock::time_point since_ = std::chrono::steady_clock::now();
    uint64_t frames_ = 0;
};

} // namespace kalix::view

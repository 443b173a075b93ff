#include "tools/run/time_limit.h"

#include "tools/run/descendants.h"

#include <algorithm>
#include <csignal>
#include <iostream>

namespace kalix::run {

namespace {

using clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto grace = 5s;

} // namespace

time_limit::time_limit(std::optional<seconds> limit) : limit_{limit}
{
    if (limit)
        due_ = clock::now() + *limit;
}

int time_limit::poll_ms() const
{
    if (!due_)
        return -1;
    // A poll counts whole milliseconds in an int; one that is cut short is made again.
    return static_cast<int>(
        std::clamp<int64_t>(std::chrono::ceil<std::chrono::milliseconds>(*due_ - clock::now()) / 1ms, 0,
                            std::chrono::milliseconds{24h} / 1ms));
}

void time_limit::enforce(std::span<const pid_t> spared)
{
    if (!due_ || clock::now() < *due_)
        return;
    descendants::signal(passed_ ? SIGKILL : SIGTERM, spared);
    if (passed_) {
        due_.reset();
        return;
    }
    std::cerr << "kalix-run: the command has not ended within " << limit_->count() << " s; it is ended now\n";
    passed_ = true;
    due_ = clock::now() + grace;
}

} // namespace kalix::run

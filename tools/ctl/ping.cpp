// A sign of life: whether the server answers, and how fast.

#include "tools/ctl/commands.h"
#include "tools/screen/run_directory.h"
#include "tools/screen/status_reader.h"

#include <algorithm>
#include <chrono>
#include <kalix/client.hpp>

namespace kalix::ctl {
namespace {

// Not known to who may connect and not look, as through a socket that was mounted alone.
value server_process(const std::string& directory)
{
    try {
        return uint64_t{tools::read_status(directory)->server_pid};
    } catch (const std::exception&) {
        return unknown{};
    }
}

} // namespace

report ping(const arguments&)
{
    const client::connection server;
    constexpr int rounds = 16;
    std::vector<double> microseconds;
    for (int i = 0; i < rounds; ++i) {
        const auto start = std::chrono::steady_clock::now();
        server.parameter(KALIX_PARAM_HAVE_3D);
        microseconds.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
    }
    std::ranges::nth_element(microseconds, microseconds.begin() + rounds / 2);
    const std::string directory = tools::run_directory();
    return {{{"server", server_process(directory)},
             {"run_directory", directory},
             {"round_trip_us", microseconds[rounds / 2]},
             {"requests", uint64_t{rounds}}},
            {}};
}

} // namespace kalix::ctl

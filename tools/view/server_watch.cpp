#include "tools/view/server_watch.h"

#include "tools/screen/server_state.h"

namespace kalix::view {
namespace {

using namespace std::chrono_literals;

constexpr auto look_every = 500ms;

} // namespace

void server_watch::expect_alive()
{
    const auto now = std::chrono::steady_clock::now();
    if (now < next_look_)
        return;
    next_look_ = now + look_every;
    // One without a status file cannot be asked about, and has a screen to show all the same.
    if (tools::state_of_server(run_directory_) == tools::server_state::ended)
        throw tools::server_ended{};
}

} // namespace kalix::view

#include "tools/view/server_watch.h"

#include "tools/screen/mapped_file.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <kalix/rundir.h>
#include <kalix/screen.h>
#include <stdexcept>

namespace kalix::view {
namespace {

using namespace std::chrono_literals;

constexpr auto look_every = 500ms;

bool server_lives(const std::string& run_directory)
{
    const tools::mapped_file file{run_directory + "/" + kalix_screen_file, sizeof(kalix_screen)};
    const auto& screen = *reinterpret_cast<const kalix_screen*>(file.bytes().data());
    const std::atomic_ref<uint32_t> pid{const_cast<uint32_t&>(screen.server_pid)}; // loads alone
    const auto server = static_cast<pid_t>(pid.load(std::memory_order_relaxed));
    return server > 0 && (kill(server, 0) == 0 || errno != ESRCH);
}

} // namespace

void server_watch::expect_alive()
{
    const auto now = std::chrono::steady_clock::now();
    if (now < next_look_)
        return;
    next_look_ = now + look_every;
    if (!server_lives(run_directory_))
        throw std::runtime_error{"the server has ended"};
}

} // namespace kalix::view

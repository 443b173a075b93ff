#include "tools/demo/session.h"

#include "tools/demo/animation.h"

#include <exception>
#include <optional>
#include <system_error>
#include <thread>

namespace kalix::demo {
namespace {

using clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto retry_every = 100ms;

// What lost the connection, or nothing when the work was done.
std::exception_ptr work_through(const client::connection& server,
                                const std::function<void(const client::connection&)>& work)
{
    try {
        work(server);
        return nullptr;
    } catch (const std::system_error&) {
        if (server.error() == 0)
            throw; // the server is there and refuses something
        return std::current_exception();
    }
}

// Nothing when none came.
std::optional<client::connection> next_server(std::chrono::seconds patience)
{
    const auto until = clock::now() + patience;
    while (!interrupted() && clock::now() < until) {
        try {
            return client::connection{};
        } catch (const std::system_error&) {
            std::this_thread::sleep_for(retry_every); // not yet there, or not yet serving
        }
    }
    return std::nullopt;
}

} // namespace

void with_servers(std::chrono::seconds patience, const std::function<void()>& tell,
                  const std::function<void(const client::connection&)>& work)
{
    std::optional<client::connection> server{std::in_place};
    while (const std::exception_ptr loss = work_through(*server, work)) {
        if (interrupted())
            return;
        if (patience > 0s)
            tell();
        server.reset();
        server = next_server(patience);
        if (interrupted())
            return;
        if (!server)
            std::rethrow_exception(loss);
    }
}

} // namespace kalix::demo

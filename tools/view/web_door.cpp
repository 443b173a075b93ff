// A request is looked at without taking it: what turns out to be the viewer's connection is handed on untouched, since
// the library that serves viewers wants to read the request itself.

#include "tools/view/web_door.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <utility>

namespace kalix::view {
namespace {

using clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr size_t request_bytes_most = 8192;
constexpr size_t visitors_most = 64; // a browser opens six at once
constexpr auto visit_time = 10s;     // from the connection to the last byte of the answer

std::string lower(std::string_view text)
{
    std::string out{text};
    std::ranges::transform(out, out.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

bool asks_for_viewer(std::string_view request)
{
    return lower(request).find("\r\nupgrade: websocket\r\n") != std::string::npos;
}

} // namespace

web_door::web_door(viewer_listener listener, web_pages pages) : listener_{std::move(listener)}, pages_{std::move(pages)}
{
}

unique_fd web_door::accept()
{
    while (visitors_.size() < visitors_most) {
        unique_fd socket = listener_.accept();
        if (!socket)
            break;
        visitors_.push_back({std::move(socket), clock::now() + visit_time});
    }
    for (auto one = visitors_.begin(); one != visitors_.end();) {
        const step next = one->answer.empty() ? listen_to(*one) : send_to(*one);
        if (next == step::stays && clock::now() < one->until) {
            ++one;
            continue;
        }
        unique_fd socket = std::move(one->socket);
        one = visitors_.erase(one);
        if (next == step::views)
            return socket;
    }
    return {};
}

web_door::step web_door::listen_to(visitor& one) const
{
    std::array<char, request_bytes_most> room;
    const ssize_t count = recv(one.socket.get(), room.data(), room.size(), MSG_PEEK | MSG_DONTWAIT);
    if (count <= 0)
        return count < 0 && errno == EAGAIN ? step::stays : step::leaves;
    const std::string_view seen{room.data(), static_cast<size_t>(count)};
    const size_t end = seen.find("\r\n\r\n");
    one.began = true;
    if (end == std::string_view::npos)
        return seen.size() < room.size() ? step::stays : step::leaves;
    const std::string_view request = seen.substr(0, end + 2);
    if (asks_for_viewer(request))
        return step::views;
    // Taken now: a connection that is closed on unread bytes may lose its answer.
    recv(one.socket.get(), room.data(), static_cast<size_t>(count), MSG_DONTWAIT);
    one.answer = pages_.answer(request.substr(0, request.find("\r\n")));
    return send_to(one);
}

web_door::step web_door::send_to(visitor& one)
{
    const ssize_t sent = send(one.socket.get(), one.answer.data(), one.answer.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0)
        return errno == EAGAIN ? step::stays : step::leaves;
    one.answer.erase(0, static_cast<size_t>(sent));
    return one.answer.empty() ? step::leaves : step::stays;
}

void web_door::wait(int milliseconds) const
{
    std::vector<pollfd> watched;
    if (visitors_.size() < visitors_most)
        watched.push_back({listener_.fd(), POLLIN, 0});
    for (const visitor& one : visitors_)
        // The rest of a request that is half here: its first half would end the wait at once, so it is looked for when
        // the time is over.
        if (!one.began || !one.answer.empty())
            watched.push_back({one.socket.get(), static_cast<short>(one.answer.empty() ? POLLIN : POLLOUT), 0});
    poll(watched.data(), watched.size(), milliseconds);
}

} // namespace kalix::view

// The zoom: a factor in the server's publish/subscribe store, which the server follows.
//
// No request sets it, so it is written where the server watches, and the status file says when the server has it.

#include "platform/store/store.h"
#include "tools/ctl/commands.h"
#include "tools/screen/run_directory.h"
#include "tools/screen/server_state.h"
#include "tools/screen/status_reader.h"

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <functional>
#include <span>
#include <stdexcept>
#include <thread>

namespace kalix::ctl {
namespace {

using namespace std::chrono_literals;

constexpr auto patience = 2s; // for the server to take notice

bool soon(const std::function<bool()>& condition)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

float current_zoom(const std::string& directory)
{
    tools::expect_server(directory);
    return tools::read_status(directory)->zoom;
}

// The factor that a word names, as the server will hold it.
float parse_factor(const std::string& text)
{
    float factor = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), factor);
    if (error != std::errc{} || end != text.data() + text.size() || !(factor >= 0.1f && factor <= 1.0f))
        throw std::runtime_error{fmt::format("cannot zoom to {}: a factor is a number from 0.1 to 1", text)};
    return factor;
}

// Into the store of the server that was found, whatever the environment of this process says: the platform goes by its
// variable, which is set before it looks.
void publish(float factor, const char* store)
{
    if (!*store)
        throw std::runtime_error{"the server has no store, and so no zoom that could be set; its log says why"};
    ::setenv("KALIX_PPS_DIR", store, 1);
    platform::machine_name machine;
    const int32_t object = platform::open("/pps/services/mesa", platform::open_read_write | platform::open_create);
    if (object == -1 || platform::uname(&machine) != 0)
        throw std::runtime_error{fmt::format("cannot open the configuration object in the server's store {}: {}", store,
                                             std::strerror(errno))};
    const std::string line = fmt::format("[-n]{}_zoom_factor::{}", machine.machine, factor);
    const bool written = platform::write(object, std::as_bytes(std::span{line})) != -1;
    const int error = errno;
    platform::close_object(object);
    if (!written)
        throw std::runtime_error{fmt::format("cannot write the configuration object in the server's store {}: {}",
                                             store, std::strerror(error))};
}

} // namespace

report tell_or_set_zoom(const arguments& given)
{
    const std::string directory = tools::run_directory();
    if (given.has("factor")) {
        const float wanted = parse_factor(given.text("factor"));
        tools::expect_server(directory); // before anything is written
        publish(wanted, tools::read_status(directory)->store);
        if (!soon([&] { return current_zoom(directory) == wanted; }))
            throw std::runtime_error{fmt::format(
                "the factor is written, but the server still has {}; its log may say why", current_zoom(directory))};
    }
    return {{{"zoom", plain(current_zoom(directory))}}, {}};
}

} // namespace kalix::ctl

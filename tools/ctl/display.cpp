#include "platform/store/store.h"
#include "tools/ctl/commands.h"
#include "tools/screen/screen_reader.h"
#include "tools/screen/status_reader.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <fmt/format.h>
#include <functional>
#include <kalix/client.hpp>
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

float current_zoom()
{
    return tools::read_status(tools::run_directory())->zoom;
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

void publish(float factor)
{
    platform::machine_name machine;
    const int32_t object = platform::open("/pps/services/mesa", platform::open_read_write | platform::open_create);
    if (object == -1 || platform::uname(&machine) != 0)
        throw std::runtime_error{fmt::format(
            "cannot open the configuration object: {}; KALIX_PPS_DIR names the server's store", std::strerror(errno))};
    const std::string line = fmt::format("[-n]{}_zoom_factor::{}", machine.machine, factor);
    const bool written = platform::write(object, std::as_bytes(std::span{line})) != -1;
    const int error = errno;
    platform::close_object(object);
    if (!written)
        throw std::runtime_error{fmt::format("cannot write the configuration object: {}", std::strerror(error))};
}

} // namespace

report tell_or_set_zoom(const arguments& given)
{
    if (given.has("factor")) {
        const float wanted = parse_factor(given.text("factor"));
        publish(wanted);
        if (!soon([&] { return current_zoom() == wanted; }))
            throw std::runtime_error{fmt::format("the factor is written, but the server still has {}: it reads another "
                                                 "store (KALIX_PPS_DIR), or none",
                                                 current_zoom())};
    }
    return {{{"zoom", double{current_zoom()}}}, {}};
}

report set_mode(const arguments& given)
{
    const auto [width, height] = given.extent("size");
    const auto bits_per_pixel = given.number<uint32_t>("--bpp");
    const client::connection server;
    client::check(kalix_set_mode(server.get(), width, height, bits_per_pixel), "set the mode");
    tools::screen_reader reader{tools::run_directory()};
    tools::screen_frame frame;
    if (!reader.read(frame, tools::cursor_drawing::without))
        throw std::runtime_error{"the mode was asked for, but the screen changes too fast to tell"};
    const float zoom = current_zoom();
    const auto side = [zoom](uint32_t of) {
        return std::max(1u, static_cast<uint32_t>(static_cast<float>(of) * zoom));
    };
    if (frame.width != side(width) || frame.height != side(height) || frame.bits_per_pixel != bits_per_pixel)
        throw std::runtime_error{fmt::format("the device has no mode {}x{} of {} bits; the screen stays {}x{} of {}",
                                             width, height, bits_per_pixel, frame.width, frame.height,
                                             frame.bits_per_pixel)};
    return {{{"mode", fmt::format("{}x{}", width, height)},
             {"bits_per_pixel", uint64_t{bits_per_pixel}},
             {"screen", fmt::format("{}x{}", frame.width, frame.height)}},
            {}};
}

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
    return {{{"server", uint64_t{tools::read_status(tools::run_directory())->server_pid}},
             {"run_directory", tools::run_directory()},
             {"round_trip_us", microseconds[rounds / 2]},
             {"requests", uint64_t{rounds}}},
            {}};
}

} // namespace kalix::ctl

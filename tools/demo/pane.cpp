#include "tools/demo/pane.h"

#include "tools/demo/session.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <iostream>
#include <kalix/client.hpp>
#include <span>
#include <string_view>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace kalix::demo {
namespace {

using namespace std::chrono_literals;

constexpr uint32_t pane_width = 300, pane_height = 112;
constexpr float corner_radius = 22;
// About a frame: presents show the pane wherever it then is.
constexpr auto step_time = 16ms;
constexpr uint32_t glass = 0x70305090, rim = 0xE0C8DCFF, ink = 0xF0FFFFFF; // 0xAARRGGBB

// "kalix", seven rows of dots.
constexpr std::array<std::string_view, 7> letters = {
    "#...........#.#.....", //
    "#...........#.......", //
    "#..#..###...#.#.#..#", //
    "#.#......#..#.#.#..#", //
    "##.....###..#.#..##.", //
    "#.#...#..#..#.#.#..#", //
    "#..#...###..#.#.#..#", //
};
constexpr uint32_t dot = 10; // pixels
constexpr uint32_t letters_left = (pane_width - 20 * dot) / 2, letters_top = (pane_height - 7 * dot) / 2;

// Distance of a pixel from the rounded rectangle's edge, above 0 inside.
float inside_by(float x, float y)
{
    const float right = static_cast<float>(pane_width) / 2 - corner_radius;
    const float down = static_cast<float>(pane_height) / 2 - corner_radius;
    const float dx = std::max(std::abs(x - static_cast<float>(pane_width) / 2) - right, 0.0F);
    const float dy = std::max(std::abs(y - static_cast<float>(pane_height) / 2) - down, 0.0F);
    return corner_radius - std::hypot(dx, dy);
}

bool is_ink(uint32_t x, uint32_t y)
{
    if (x < letters_left || y < letters_top)
        return false;
    const uint32_t column = (x - letters_left) / dot;
    const uint32_t row = (y - letters_top) / dot;
    return row < letters.size() && column < letters[row].size() && letters[row][column] == '#';
}

uint32_t pane_pixel(uint32_t x, uint32_t y)
{
    const float inside = inside_by(static_cast<float>(x) + 0.5F, static_cast<float>(y) + 0.5F);
    if (inside <= 0)
        return 0;
    if (inside < 2.5F)
        return rim;
    return is_ink(x, y) ? ink : glass + (y * 48 / pane_height << 24); // denser towards the bottom
}

void paint(const client::connection& server, const client::surface& surface)
{
    std::vector<uint32_t> pixels;
    for (uint32_t y = 0; y < pane_height; ++y)
        for (uint32_t x = 0; x < pane_width; ++x)
            pixels.push_back(pane_pixel(x, y));
    client::context context{server};
    const client::dma_buffer staging{server, static_cast<uint32_t>(pixels.size() * 4)};
    std::ranges::copy(std::as_bytes(std::span{pixels}), staging.bytes().begin());
    const svga3d_copy_box all{0, 0, 0, pane_width, pane_height, 1, 0, 0, 0};
    context.commands().surface_dma({{staging.at(0), 0}, surface.image(), SVGA3D_WRITE_HOST_VRAM}, {&all, 1});
    server.wait(context.commands().submit());
}

// Where the pane is after so many steps: on a slow curve that stays on the screen.
overlay_define_req place(const animation_options& on, uint64_t step, uint32_t sid)
{
    const auto t = static_cast<float>(step) * 0.02F;
    const auto along = [](uint32_t room, uint32_t size, float wave) {
        return static_cast<int32_t>(static_cast<float>(room > size ? room - size : 0) * (0.5F + 0.42F * wave));
    };
    return {along(on.width, pane_width, std::sin(0.7F * t)),
            along(on.height, pane_height, std::cos(t)),
            pane_width,
            pane_height,
            1,
            0,
            sid,
            0,
            0,
            0};
}

// An overlay does not move: the next one is made before the last one goes, so that none is missing in between.
void drift(const client::connection& server, const animation_options& on)
{
    const client::surface surface{server, SVGA3D_SURFACE_HINT_TEXTURE, SVGA3D_A8R8G8B8, pane_width, pane_height};
    paint(server, surface);
    uint32_t last = 0;
    for (uint64_t step = 0; !interrupted(); ++step) {
        const overlay_define_req next = place(on, step, surface.sid());
        uint32_t id = 0;
        client::check(kalix_overlay_define(server.get(), &next, &id), "define an overlay");
        if (last != 0)
            client::check(kalix_overlay_destroy(server.get(), last), "destroy an overlay");
        last = id;
        std::this_thread::sleep_for(step_time);
    }
}

[[noreturn]] void run(const animation_options& options)
{
    prctl(PR_SET_PDEATHSIG, SIGTERM); // it goes with the demo, however that ends
    try {
        // The demo tells of a server that has gone.
        with_servers(
            options.patience, [] {}, [&](const client::connection& server) { drift(server, options); });
    } catch (const std::system_error& error) {
        if (!interrupted())
            std::cerr << "kalix-demo: the second client cannot " << error.what() << '\n';
    }
    _exit(0);
}

} // namespace

pane_process::pane_process(const animation_options& options) : process_{fork()}
{
    if (process_ < 0)
        throw std::system_error{errno, std::generic_category(), "start a second client"};
    if (process_ == 0)
        run(options);
}

pane_process::~pane_process()
{
    kill(process_, SIGTERM);
    while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

} // namespace kalix::demo

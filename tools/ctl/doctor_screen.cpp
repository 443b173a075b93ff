// On the screen: what a server that lives shows, and what it refused to do.

#include "tools/ctl/doctor.h"
#include "tools/ctl/report.h"
#include "tools/ctl/status_text.h"
#include "tools/ctl/svga_names.h"

#include <algorithm>
#include <ctime>
#include <fmt/format.h>
#include <numeric>
#include <span>
#include <vector>

namespace kalix::ctl {
namespace {

const kalix_status* living(const patient& of)
{
    return of.server == tools::server_state::lives ? of.status.get() : nullptr;
}

double seconds_since(uint64_t time_ns)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9 -
           static_cast<double>(time_ns) * 1e-9;
}

// But for the last column and row, which a presented picture does not reach (docs/presentation.md).
bool is_one_colour(const tools::screen_frame& frame)
{
    const uint32_t width = std::max(frame.width, 2u) - 1;
    const uint32_t height = std::max(frame.height, 2u) - 1;
    for (uint32_t y = 0; y < height; ++y)
        for (const uint32_t pixel :
             std::span{frame.pixels}.subspan(size_t{y} * frame.width, std::min(width, frame.width)))
            if (pixel != frame.pixels[0])
                return false;
    return true;
}

// "no target 3, outside 1" of counters that have counted something.
template <size_t size>
std::string named_counts(const uint64_t (&counts)[size], std::string (*name_of)(uint32_t), uint32_t without = size)
{
    std::vector<std::string> words;
    for (uint32_t i = 0; i < size; ++i)
        if (counts[i] != 0 && i != without)
            words.push_back(fmt::format("{} {}", name_of(i), counts[i]));
    return fmt::format("{}", fmt::join(words, ", "));
}

// The newest refusal that the ring still has.
std::string last_refusal_in(const kalix_status& status)
{
    const kalix_status_event* last = nullptr;
    for (const kalix_status_event& each : status.events)
        if (each.kind == KALIX_EVENT_REFUSAL && (!last || each.number > last->number))
            last = &each;
    if (!last)
        return "";
    return fmt::format("; the last: {} by process {}", refusal_text(last->a, static_cast<int32_t>(last->c), last->b),
                       last->pid);
}

} // namespace

finding check_display(const patient& of)
{
    if (!of.screen)
        return {};
    if (of.screen->enabled)
        return fine("on");
    return {severity::fault, fault::display_off, "off: all that is shown is black",
            fmt::format("kalixctl mode {}x{}, or a client's set_mode", of.screen->width, of.screen->height)};
}

finding check_mode(const patient& of)
{
    if (!of.screen)
        return {};
    const std::string mode =
        fmt::format("the screen has {}x{} of {} bits", of.screen->width, of.screen->height, of.screen->bits_per_pixel);
    const uint64_t refused = of.counted.refused[KALIX_REFUSED_MODE];
    if (refused == 0)
        return fine(mode);
    return {severity::warn, fault::mode_refused, fmt::format("{}; {} others were refused", mode, refused),
            "the framebuffer holds 4 bytes a pixel (SVGA_DEVICE_VRAM), the depth is 16 or 32"};
}

finding check_debug_display(const patient& of)
{
    const kalix_status* const status = living(of);
    if (!status)
        return {};
    if (status->debug_show_sid == 0)
        return fine("off");
    return {severity::warn, fault::debug_display,
            fmt::format("surface {} is shown alone, whatever clients present", status->debug_show_sid),
            "kalixctl reset"};
}

finding check_frame(const patient& of)
{
    const kalix_status* const status = living(of);
    if (!status)
        return {};
    const kalix_status_frame& frame = status->frame;
    if (frame.number == 0)
        return {severity::fault, fault::nothing_presented, "nothing was presented yet",
                "kalix_present; kalix-demo mesh shows that this server can"};
    return fine(fmt::format("number {}, {:.1f} s ago, of surface {}, {}x{}", frame.number, seconds_since(frame.time_ns),
                            frame.sid, frame.width, frame.height));
}

finding check_picture(const patient& of)
{
    const kalix_status* const status = living(of);
    if (!status || status->frame.number == 0 || !of.screen || !of.screen->enabled || of.screen->pixels.empty())
        return {};
    if (!is_one_colour(*of.screen))
        return fine("of more than one colour");
    return {severity::warn, fault::one_colour,
            fmt::format("the last frame is one colour, 0x{:08X}", of.screen->pixels[0]),
            "did the draw have a texture, a viewport, a target, no culling? docs/client.md, \"It stays black\""};
}

finding check_overlays(const patient& of)
{
    const kalix_status* const status = living(of);
    if (!status)
        return {};
    int count = 0;
    for (const kalix_status_overlay& each : status->overlays) {
        count += each.id != 0;
        if (each.id != 0 && !each.visible)
            return {severity::warn, fault::overlay_hidden,
                    fmt::format("overlay {} of process {} is hidden", each.id, each.owner_pid),
                    "its client shows it (kalix_overlay_visible)"};
    }
    return fine(count == 0 ? "none" : fmt::format("{}, none hidden", count));
}

finding check_bounds(const patient& of)
{
    const kalix_status* const status = living(of);
    if (!status)
        return {};
    const std::string reached = named_counts(status->bounds_reached, bound_name);
    if (reached.empty())
        return fine("none was reached");
    return {severity::warn, fault::bound_reached, "reached: " + reached,
            "kalixctl top shows who holds them; docs/security.md, Bounds"};
}

finding check_refusals(const patient& of)
{
    const kalix_status* const status = living(of);
    if (!status)
        return {};
    const std::string device = named_counts(of.counted.refused, refusal_name, KALIX_REFUSED_MODE);
    const uint64_t requests =
        std::transform_reduce(std::begin(status->clients), std::end(status->clients), uint64_t{0}, std::plus{},
                              [](const kalix_status_client& each) { return each.refused.count; });
    if (device.empty() && requests == 0)
        return fine("none");
    return {severity::warn, fault::refused,
            fmt::format("by the device: {}; of clients' requests: {}{}", device.empty() ? "none" : device, requests,
                        last_refusal_in(*status)),
            "kalixctl stats, and the server's log"};
}

finding check_zoom(const patient& of)
{
    const kalix_status* const status = living(of);
    if (!status)
        return {};
    if (status->zoom == 1)
        return fine("1");
    return {severity::warn, fault::zoomed, fmt::format("{}: the screen is smaller than its mode", status->zoom),
            "kalixctl zoom 1"};
}

} // namespace kalix::ctl

// The screen's changes, each of them one screen_change, and the header that viewers read.

#include "device/state/screen.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <unistd.h>

namespace kalix::device {

static_assert(static_cast<int>(SVGA_CURSOR_EXTENT_MAX) == static_cast<int>(KALIX_SCREEN_CURSOR_EXTENT));

screen_change::screen_change(screen& of) : header_{of.file_.header()}
{
    // Odd before the first byte changes: what follows may not be moved before it.
    std::atomic_ref{header_.sequence}.fetch_add(1, std::memory_order_acq_rel);
}

screen_change::~screen_change()
{
    if (damaged_)
        ++header_.damage;
    // Even again behind the last byte: a viewer that sees this number sees all that was written.
    std::atomic_ref{header_.sequence}.fetch_add(1, std::memory_order_release);
}

screen::screen(uint64_t framebuffer_bytes, log_function log) : file_{framebuffer_bytes, log}
{
    if (!file_)
        return;
    // A server that was killed may have left the sequence odd.
    kalix_screen& header = file_.header();
    header.sequence += header.sequence & 1;
    {
        screen_change change{*this};
        header.server_pid = static_cast<uint32_t>(getpid());
        header.enabled = 0;
        header.statistics = {};
        header.cursor.visible = header.cursor.width = header.cursor.height = 0;
    }
    set_mode(first_mode);
}

// The file stays for the next server; a viewer sees by the process id that nobody draws now.
screen::~screen()
{
    if (!file_)
        return;
    screen_change change{*this};
    file_.header().server_pid = 0;
    file_.header().enabled = 0;
}

void screen::set_mode(const mode& to)
{
    screen_change change{*this};
    change.damaged();
    mode_ = to;
    kalix_screen& header = file_.header();
    header.width = to.width;
    header.height = to.height;
    header.pitch = to.pitch();
    header.bits_per_pixel = to.bits_per_pixel;
    // What lies behind the picture in the framebuffer is guest memory like any other, and stays.
    std::ranges::fill(framebuffer().first(to.picture_bytes()), std::byte{0});
}

void screen::set_enabled(bool enabled)
{
    screen_change change{*this};
    file_.header().enabled = enabled;
}

void screen::define_cursor(const svga_alpha_cursor& shape, std::span<const uint32_t> pixels)
{
    screen_change change{*this};
    kalix_screen_cursor& cursor = file_.header().cursor;
    cursor.hotspot_x = shape.hotspot_x;
    cursor.hotspot_y = shape.hotspot_y;
    cursor.width = shape.width;
    cursor.height = shape.height;
    std::ranges::copy(pixels, cursor.pixels);
    ++cursor.generation;
}

void screen::move_cursor(bool visible, uint32_t x, uint32_t y)
{
    screen_change change{*this};
    kalix_screen_cursor& cursor = file_.header().cursor;
    cursor.visible = visible;
    cursor.x = x;
    cursor.y = y;
}

void screen::publish(const kalix_screen_statistics& counters)
{
    screen_change change{*this};
    file_.header().statistics = counters;
}

} // namespace kalix::device

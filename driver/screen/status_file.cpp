#include "driver/screen/status_file.h"

#include "base/saturate.h"
#include "driver/screen/postprocess.h"
#include "driver/screen/status_page.h"
#include "driver/screen/zoom.h"
#include "platform/files/published_file.h"
#include "platform/log/clock.h"
#include "platform/process.h"

#include <cstdio>
#include <kalix/rundir.h>
#include <utility>

namespace kalix {

kalix_status* status_page;

namespace {

bool display_on; // as the last request or mode left it; the device starts with it off

// 0 for none, which no surface has.
uint32_t sid_of(const surface_record* surface)
{
    return surface ? surface->id : 0;
}

kalix_status_overlay as_drawn(const overlay_record& overlay, const surface_record& surface)
{
    const surface_dimensions size = dimensions_of(surface);
    kalix_status_overlay drawn = status_overlay(overlay);
    drawn.x = zoomed(overlay.x);
    drawn.y = zoomed(overlay.y);
    drawn.width = zoomed_unsigned(size.width);
    drawn.height = zoomed_unsigned(size.height);
    drawn.turned = postprocess_turns(surface);
    return drawn;
}

// The number goes on, so that a reader can tell a new frame from the one that it saw.
void begin_frame(kalix_status_frame& frame, const surface_record& surface)
{
    const uint64_t number = frame.number + 1;
    frame = {};
    frame.number = number;
    frame.time_ns = platform::time_of_day_ns();
    frame.sid = surface.id;
    frame.zoom = _globals.svga_device->zoom;
    frame.screen_width = _globals.svga_device->width;
    frame.screen_height = _globals.svga_device->height;
}

void write_display(const client_record* by, bool on)
{
    if (std::exchange(display_on, on) != on)
        status_event(KALIX_EVENT_DISPLAY, by, on);
}

} // namespace

kalix_status_overlay status_overlay(const overlay_record& overlay)
{
    return {overlay.id,
            overlay.owner_pid,
            overlay.x,
            overlay.y,
            overlay.width,
            overlay.height,
            overlay.visible,
            overlay.buffer_count,
            {sid_of(overlay.surface[0]), sid_of(overlay.surface[1])},
            static_cast<uint32_t>(shown_buffer(overlay)),
            0};
}

void status_event(kalix_event_kind kind, const client_record* who, uint32_t a, uint32_t b, uint32_t c)
{
    const uint64_t number = ++status_page->event_number;
    status_page->events[(number - 1) % KALIX_STATUS_EVENTS] = {
        number, platform::time_of_day_ns(), kind, who ? who->pid : 0, who ? who->uid : 0, a, b, c};
}

void status_begin()
{
    status_page = static_cast<kalix_status*>(platform::map_published_file(kalix_status_file, sizeof *status_page));
    display_on = false;
    if (!status_page)
        return;
    // The file begins as zeros: until this change is done a reader finds no magic, or an odd sequence.
    const status_change now;
    status_page->magic = KALIX_STATUS_MAGIC;
    status_page->version = KALIX_STATUS_VERSION;
    status_page->header_bytes = sizeof *status_page;
    status_page->server_pid = platform::own_process();
    status_page->zoom = _globals.svga_device->zoom;
    status_page->start_ns = platform::time_of_day_ns();
}

void status_note_store(const char* directory)
{
    if (!status_page)
        return;
    const status_change now;
    std::snprintf(status_page->store, sizeof status_page->store, "%s", directory);
}

void status_note_frame(const surface_record& surface, const present_rectangle& rectangle)
{
    if (!status_page)
        return;
    const status_change now;
    kalix_status_frame& frame = status_page->frame;
    begin_frame(frame, surface);
    frame.x = rectangle.x;
    frame.y = rectangle.y;
    frame.width = rectangle.width;
    frame.height = rectangle.height;
    frame.uploaded_bytes = postprocess_last_cost().uploaded_bytes;
    frame.waited = postprocess_last_cost().waited;
    // Worked out as the pass does, under the mutex that keeps the overlays as they were drawn.
    for_each_overlay([&frame](const overlay_record& overlay) {
        const surface_record* const shown = overlay.surface[shown_buffer(overlay)];
        if (overlay.visible && shown && dimensions_of(*shown).width != 0)
            frame.overlays[frame.overlay_count++] = as_drawn(overlay, *shown);
    });
}

void status_note_debug_frame(const surface_record& surface)
{
    if (!status_page)
        return;
    const status_change now;
    kalix_status_frame& frame = status_page->frame;
    begin_frame(frame, surface);
    frame.debug = 1;
    frame.width = static_cast<int32_t>(dimensions_of(surface).width);
    frame.height = static_cast<int32_t>(dimensions_of(surface).height);
    frame.waited = 1;
}

void status_note_display()
{
    if (!status_page)
        return;
    const status_change now;
    const float zoom = _globals.svga_device->zoom;
    if (std::exchange(status_page->zoom, zoom) != zoom)
        status_event(KALIX_EVENT_ZOOM, nullptr, truncated_unsigned(zoom * 1e6f + 0.5f));
    status_page->debug_show_sid = _globals.debug_show_sid;
}

void status_note_mode(client_record* by, const set_mode_req& mode)
{
    if (!status_page)
        return;
    const status_change now;
    if (by)
        status_slot(*by); // its connect comes first
    status_event(KALIX_EVENT_MODE, by, mode.width, mode.height, mode.bpp);
    write_display(by, true);
}

void status_note_enabled(client_record* by, bool on)
{
    if (!status_page)
        return;
    const status_change now;
    if (by)
        status_slot(*by);
    write_display(by, on);
}

} // namespace kalix

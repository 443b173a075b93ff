#include "driver/screen/status_file.h"

#include "driver/screen/postprocess.h"
#include "driver/screen/zoom.h"
#include "platform/files/published_file.h"
#include "platform/process.h"

#include <algorithm>
#include <atomic>
#include <kalix/rundir.h>
#include <kalix/status.h>

namespace kalix {
namespace {

static_assert(static_cast<size_t>(KALIX_STATUS_OBJECT_TYPES) == RESOURCE_TOTAL);
static_assert(static_cast<uint32_t>(KALIX_STATUS_OVERLAYS) == overlay_id_capacity);

kalix_status* status; // mapped, never unmapped; null when there is none. Written under the device mutex

// One change of the file: the sequence is odd while it lives.
class change {
public:
    change() { sequence().fetch_add(1, std::memory_order_acq_rel); } // nothing below moves before it
    ~change() { sequence().fetch_add(1, std::memory_order_release); }
    change(const change&) = delete;
    change& operator=(const change&) = delete;

private:
    static std::atomic_ref<uint32_t> sequence() { return std::atomic_ref<uint32_t>{status->sequence}; }
};

// 0 for none, which no surface has.
uint32_t sid_of(const surface_record* surface)
{
    return surface ? surface->id : 0;
}

kalix_status_overlay as_defined(const overlay_record& overlay)
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

kalix_status_overlay as_drawn(const overlay_record& overlay, const surface_record& surface)
{
    const surface_dimensions size = dimensions_of(surface);
    kalix_status_overlay drawn = as_defined(overlay);
    drawn.x = zoomed(overlay.x);
    drawn.y = zoomed(overlay.y);
    drawn.width = zoomed_unsigned(size.width);
    drawn.height = zoomed_unsigned(size.height);
    drawn.turned = postprocess_turns(surface);
    return drawn;
}

void write_overlays() KALIX_REQUIRES(_globals.device_mutex)
{
    std::ranges::fill(status->overlays, kalix_status_overlay{});
    for_each_overlay([](const overlay_record& overlay) { status->overlays[overlay.id - 1] = as_defined(overlay); });
}

// The number goes on, so that a reader can tell a new frame from the one that it saw.
void begin_frame(kalix_status_frame& frame, const surface_record& surface)
{
    const uint64_t number = frame.number + 1;
    frame = {};
    frame.number = number;
    frame.sid = surface.id;
    frame.zoom = _globals.svga_device->zoom;
    frame.screen_width = _globals.svga_device->width;
    frame.screen_height = _globals.svga_device->height;
}

} // namespace

void status_begin()
{
    status = static_cast<kalix_status*>(platform::map_published_file(kalix_status_file, sizeof *status));
    if (!status)
        return;
    // The file begins as zeros: until this change is done a reader finds no magic, or an odd sequence.
    const change now;
    status->magic = KALIX_STATUS_MAGIC;
    status->version = KALIX_STATUS_VERSION;
    status->header_bytes = sizeof *status;
    status->server_pid = platform::own_process();
    status->zoom = _globals.svga_device->zoom;
}

void status_note_client(client_record& client)
{
    if (!status)
        return;
    const change now;
    if (client.status_slot == 0) {
        // As many slots as connections; one that finds none is not shown, and asks again with its next request.
        const auto* const free = std::ranges::find(status->clients, 0u, &kalix_status_client::pid);
        if (free == std::end(status->clients))
            return;
        client.status_slot = static_cast<uint32_t>(free - std::begin(status->clients)) + 1;
        status->clients_seen++;
    }
    kalix_status_client& slot = status->clients[client.status_slot - 1];
    slot.pid = client.pid;
    slot.uid = client.uid;
    slot.requests++;
    for (size_t type = 0; type < RESOURCE_TOTAL; ++type)
        slot.objects[type] = static_cast<uint32_t>(client.ref_tables[type]->count);
    write_overlays(); // whichever request it was may have changed them, and there are eight at most
}

void status_forget_client(const client_record& client)
{
    if (!status)
        return;
    const change now;
    // The overlays that went with the client, too: this is the last that is heard of it.
    if (client.status_slot != 0)
        status->clients[client.status_slot - 1] = {};
    write_overlays();
}

void status_note_frame(const surface_record& surface, const present_rectangle& rectangle)
{
    if (!status)
        return;
    const change now;
    kalix_status_frame& frame = status->frame;
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
    if (!status)
        return;
    const change now;
    kalix_status_frame& frame = status->frame;
    begin_frame(frame, surface);
    frame.debug = 1;
    frame.width = static_cast<int32_t>(dimensions_of(surface).width);
    frame.height = static_cast<int32_t>(dimensions_of(surface).height);
    frame.waited = 1;
}

void status_note_display()
{
    if (!status)
        return;
    const change now;
    status->zoom = _globals.svga_device->zoom;
    status->debug_show_sid = _globals.debug_show_sid;
}

} // namespace kalix

// Overlays: pictures of clients that the post-processing passes draw on top of every frame.
//
// An overlay has one or two buffers, each named as a surface (for the hardware pass) and as pixels in the
// framebuffer (for the software pass). The registry owns the records; at most eight exist in the whole
// server, and the passes draw those of all clients. Everything runs under the device mutex.
#pragma once

#include "driver/objects/surface.h"

namespace kalix {

struct overlay_record : resource_object {
    int32_t x = 0, y = 0;            // top left corner, pixels of the unzoomed screen
    uint32_t width = 0, height = 0;  // pixels; for the software pass
    uint32_t visible = 0;            // 0: not drawn
    uint32_t buffer_count = 0;       // 1 or 2
    surface_record* surface[2] = {}; // borrowed; null when there is none or it was destroyed since
    std::byte* pixels[2] = {};       // in the framebuffer; null for none
    uint32_t owner_pid = 0;          // of the client that defined it
};

// Index of the buffer that is shown: the only one, or the second of two.
inline size_t shown_buffer(const overlay_record& overlay)
{
    return overlay.buffer_count == 2 ? 1 : 0;
}

// Calls back with every overlay, in the order in which they are drawn.
template <typename function>
void for_each_overlay(function callback) KALIX_REQUIRES(_globals.device_mutex)
{
    hashtable_iterator<resource_object> walk;
    while (resource_object* const overlay = hashtable_iterate(_globals.resource_tables[RESOURCE_OVERLAY], &walk))
        callback(*static_cast<overlay_record*>(overlay));
}

// Gives a new record an id, shows it and clears its buffers. 0, or 1 when all ids are in use.
int overlay_init(overlay_record* overlay);

// Returns the id; the registry's destroy function.
void overlay_destroy(resource_object* overlay);

// An overlay that has this surface in any buffer, or null.
overlay_record* overlay_get_by_surface(const surface_record* surface) KALIX_REQUIRES(_globals.device_mutex);

// Makes every overlay forget a surface that is about to go.
void overlays_forget(const surface_record* surface) KALIX_REQUIRES(_globals.device_mutex);

// Exchanges the two buffers of a double-buffered overlay; leaves any other as it is.
void overlay_flip(overlay_record& overlay);

// Request 208: 0; -22 without a payload; 22 for a buffer count other than 1 and 2, when all ids are in use,
// and for pixels outside the framebuffer; 12 without memory.
int nebo_overlay_define(client_record* client, overlay_define_req* req) KALIX_REQUIRES(_globals.device_mutex);
// Requests 209 and 210: 0, or -22 after a line when the client holds no such overlay.
int nebo_overlay_destroy(client_record* client, overlay_destroy_req* req) KALIX_REQUIRES(_globals.device_mutex);
int nebo_overlay_visible(client_record* client, overlay_visible_req* req) KALIX_REQUIRES(_globals.device_mutex);

} // namespace kalix

// The present path: puts a client's surface on the screen.
//
// A present composes the picture in the pass's target (postprocess.h) and copies it to the screen; the
// copy is committed, not waited for. fifo_lock is held from the first reservation to the last commit or
// fence wait of one present. What was presented last is kept by its sid, which may outlive the surface:
// whoever shows it again looks it up. While debug_show_sid is set every present shows that surface instead.
#pragma once

#include "driver/objects/surface.h"

namespace kalix {

// How a present reaches the screen. Clients get the first; the others draw no overlays and know no zoom of
// the picture's pixels.
enum class present_technique {
    postprocessed = 1, // composed in the target, which is then presented
    blit = 2,          // the surface, scaled onto the screen
    dma = 3            // the surface, copied into the framebuffer
};

// Shows a rectangle of a surface: 0; -22 after a line for a surface without dimensions, and when nothing
// could be composed. The surface may be null in software mode alone, where the software pass does it all.
int present(surface_record* surface, int32_t x, int32_t y, int32_t width, int32_t height)
    KALIX_REQUIRES(_globals.device_mutex);
int present_with(present_technique technique, surface_record* surface, const present_rectangle& rectangle)
    KALIX_REQUIRES(_globals.device_mutex);

// What was presented last, or none. A surface that has got the sid since is none under strict settings: nobody
// shows a picture for another user.
surface_record* last_presented() KALIX_REQUIRES(_globals.device_mutex);

// Shows the last presented surface again, unless it is gone or there is none.
void present_again() KALIX_REQUIRES(_globals.device_mutex);

// Shows one surface alone, at its own size, over magenta. Returns 0.
int present_debug(const surface_record* surface);

// Copies a rectangle to a guest physical address in the framebuffer, in rows of the surface's width. Returns
// 0, or -22 when a byte of it would lie outside.
int present_to_phys_addr(const surface_record* surface, uint64_t phys_addr, uint32_t x, uint32_t y, uint32_t width,
                         uint32_t height);

// Requests 200, 211 and 206: 0 or -22; 211 answers 1 when there is nothing to show.
int nebo_present_ioctl(client_record* client, present_req* req) KALIX_REQUIRES(_globals.device_mutex);
int nebo_oob_present(client_record* client, oob_present_req* req) KALIX_REQUIRES(_globals.device_mutex);
int nebo_present_to_phys_addr_ioctl(client_record* client, present_phys_req* req) KALIX_REQUIRES(_globals.device_mutex);

} // namespace kalix

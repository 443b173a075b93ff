// The hardware pass: composes the picture of a present on the device.
//
// With a context of its own the pass draws, into a target surface of its own, the client's surface as one
// quad over the whole screen and then every visible overlay, blended, at its zoomed place. Geometry lies in
// two small buffer surfaces and is uploaded, through the dirty GMR, only when a quad changed; only then does
// the pass wait for the device. All state here and the staging part of the dirty GMR belong to whoever
// holds fifo_lock, under the device mutex.
//
// The objects have fixed ids outside the pools and live until the process ends; target and depth surface
// are defined anew when the screen outgrows them.
#pragma once

#include "driver/objects/overlay.h"

namespace kalix {

// Places in postprocess_surfaces.
enum postprocess_surface : size_t { POSTPROCESS_TARGET, POSTPROCESS_DEPTH, POSTPROCESS_VERTICES, POSTPROCESS_INDICES };

// Composes the surface's rectangle and the overlays in the target, from (0, 0) on, screen pixels. Returns 0;
// -22 without a surface; -12 when an object could not be made, and then the target holds no picture.
int postprocess_present(const surface_record* surface, const present_rectangle& rectangle)
    KALIX_REQUIRES(_globals.device_mutex, _globals.fifo_lock);

// What the last pass cost.
struct postprocess_cost {
    uint32_t uploaded_bytes; // vertices and indices
    uint32_t waited;         // 1 when it waited for the device
};
postprocess_cost postprocess_last_cost();

// Whether the pass turns an overlay's surface by a quarter: it is as wide as the mode is high.
bool postprocess_turns(const surface_record& surface);

// Forgets the pass's own state, without a word to the device; for a fresh driver state record.
void postprocess_reset();

} // namespace kalix

// Readback: copies a rectangle of a surface into memory that its client can see.
//
// The pixels go from the surface into the dirty GMR by surface DMA, and from there to the destination: the
// client's shared-memory object or a place in the framebuffer. The object opened first for a surface stays
// its destination until the surface goes, whoever asks later. Runs under the device mutex, which also
// keeps the dirty GMR's other users away.
#pragma once

#include "driver/objects/surface.h"

namespace kalix {

// Request 207: 0; -22 for an unknown surface, a refused pitch and a rectangle that leaves the surface or the
// destination; -12 when there is no destination.
int nebo_readback_surface(client_record* client, readback_req* req) KALIX_REQUIRES(_globals.device_mutex);

} // namespace kalix

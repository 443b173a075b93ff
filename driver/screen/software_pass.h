// The software pass: what a present does on the CPU when software_mode is set.
//
// The client's renderer has then written its frame into the framebuffer, behind the visible picture. The
// pass copies the visible overlays over that frame, scales it into the visible picture with one integer
// kernel per supported zoom factor (scaling.h), and announces the change. It takes no lock: requests are
// serialised by the device mutex.
#pragma once

#include "driver/state/driver_state.h"

namespace kalix {

// Returns 0. An empty rectangle does nothing; a frame that leaves the framebuffer is neither copied nor
// announced; an unsupported zoom copies nothing and announces.
int postprocess_software_present(const present_rectangle& rectangle) KALIX_REQUIRES(_globals.device_mutex);

// Copies the visible overlays that touch the rectangle into the frame; what reaches past it is cut.
void software_draw_overlays(const present_rectangle& rectangle) KALIX_REQUIRES(_globals.device_mutex);

// The smallest power of two that is at least v; 0 for 0.
uint32_t next_pow2(uint32_t v);

} // namespace kalix

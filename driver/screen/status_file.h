// The status file: what the driver tells its tools (kalix/status.h has the layout).
//
// Written under the device mutex alone, a change at a time, each of which leaves the sequence even. When the
// file cannot be made, a line has said so and everything here does nothing.
#pragma once

#include "driver/objects/overlay.h"

namespace kalix {

// Makes the file, in the run directory that the channel took.
void status_begin();

// What became of a client after a request of its own; and that it is gone.
void status_note_client(client_record& client) KALIX_REQUIRES(_globals.device_mutex);
void status_forget_client(const client_record& client) KALIX_REQUIRES(_globals.device_mutex);

// The frame that was just committed: of what it was composed, or which surface debug display shows.
void status_note_frame(const surface_record& surface, const present_rectangle& rectangle)
    KALIX_REQUIRES(_globals.device_mutex);
void status_note_debug_frame(const surface_record& surface);

// The zoom in force and what debug display shows.
void status_note_display() KALIX_REQUIRES(_globals.device_mutex);

} // namespace kalix

// The status file: what the driver tells its tools (kalix/status.h has the layout).
//
// Written under the device mutex alone, a change at a time, each of which leaves the sequence even. When the
// file cannot be made, a line has said so and everything here does nothing.
#pragma once

#include "driver/objects/overlay.h"

namespace kalix {

// Makes the file, in the run directory that the channel took.
void status_begin();

// The publish/subscribe store that the configuration lies in, by its absolute path, which fits.
void status_note_store(const char* directory) KALIX_REQUIRES(_globals.device_mutex);

// What became of a client after a request of its own, which was answered with that status; and that it is gone.
void status_note_request(client_record& client, int32_t command, int32_t status) KALIX_REQUIRES(_globals.device_mutex);
void status_forget_client(const client_record& client) KALIX_REQUIRES(_globals.device_mutex);

// The frame that was just committed: of what it was composed, or which surface debug display shows.
void status_note_frame(const surface_record& surface, const present_rectangle& rectangle)
    KALIX_REQUIRES(_globals.device_mutex);
void status_note_debug_frame(const surface_record& surface);

// A surface that was just defined.
void status_note_surface(uint32_t sid) KALIX_REQUIRES(_globals.device_mutex);

// A mode that the device took, which turns the display on; and the display alone. By a client, or by none.
void status_note_mode(client_record* by, const set_mode_req& mode) KALIX_REQUIRES(_globals.device_mutex);
void status_note_enabled(client_record* by, bool on) KALIX_REQUIRES(_globals.device_mutex);

// The zoom in force and what debug display shows.
void status_note_display() KALIX_REQUIRES(_globals.device_mutex);

} // namespace kalix

// Persistent configuration: the zoom factor, kept outside the driver where other programs can change it.
//
// It is an attribute of the published object "/pps/services/mesa", named after the machine, say
// x86_64_zoom_factor. Start-up opens the object and arms a notification; each change arrives as a pulse of
// code 0 in the message loop, which reads the object, applies it and arms again. All of it runs on the
// message loop's thread, outside the device mutex.
#pragma once

#include "driver/state/driver_state.h"

#include <cstdint>

namespace kalix {

inline constexpr int8_t pulse_code_config = 0;

// Opens the object. 0, or 22 when it cannot be opened or the machine has no name.
int pps_init() KALIX_EXCLUDES(_globals.device_mutex);

// Applies what the object holds and has not been read, and arms the next change's pulse to a connection.
void pps_monitor(int32_t coid);

// Reads the object and applies it: 0, 22 without an object or behind an attribute without a value, or 12.
int pps_load_config() KALIX_EXCLUDES(_globals.device_mutex);

// Writes the zoom factor that is in force into the object: 0, or 22.
int pps_save_config();

// Applies the attribute lines of a text, up to the first that fails: 0, 22 or 12.
int process_pps(const char* text);

// Applies one attribute: 0, or 22 when it is not the zoom factor.
int process_keyvalue(const char* name, const char* value);

// Closes the object; for a fresh driver state record.
void reset_config();

} // namespace kalix

// Start-up: the command line, the device library, and the bring-up of all process-wide state.
//
// Runs on the main thread before any other exists, and ends by giving that thread to the message loop.
#pragma once

#include "driver/state/driver_state.h"

namespace kalix {

// The program: reads the command line, detaches, brings the server up and serves. Returns the exit status,
// 22 for an unknown word and 0 otherwise.
int run_driver(int argc, char** argv);

// Makes the Driver state record as it is at the start of a process.
void reset_globals();

// Reads the words "waitgdb", "software" and "testmode", lower-casing every word in place. 0, or 22 at the
// first word that is none of them.
int process_arguments(int argc, char** argv);

// 0 until a debugger that is attached changes it on its way out.
int gdb_check();

// Makes everything and serves. 1 on any failure, after a line; otherwise what the message loop returns. The
// mutex is borrowed for as long as the process serves; null leaves handlers without one.
int kalix_init(mutex* device_mutex);

// Loads and starts the device library: 0, or 1 after a line.
int svga_init();

// Stops the device and unloads the library. Returns 0.
int svga_shutdown();

} // namespace kalix

// What the environment asks of the device, read once at SVGA_Init. A value that cannot be read is one
// warning line and the default.
//
//   SVGA_DEVICE_VRAM=MIB      framebuffer memory, 1 to 1024 (128)
//   SVGA_DEVICE_MEMORY=MIB    memory of all surfaces, 1 to 65536 (2048)
//   SVGA_DEVICE_THREADS=N     threads that draw, 1 to 64 (as many as there are cores, at most 2)
#pragma once

#include "svga/bus.h"
#include "svga/svga.h"

namespace kalix::guest {

// The device's options, with the given log, which may be null; the function keeps nothing.
device_options options_from_environment(svga_log_function log);

} // namespace kalix::guest

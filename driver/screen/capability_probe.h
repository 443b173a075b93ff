// Capability self-test: whether transfers into and out of a mipmapped texture give back the bytes written.
//
// Runs once per process, on the first mode set, under the device mutex. Its surface has a fixed id outside
// the pools; after a failed comparison the device keeps it.
#pragma once

#include "driver/state/driver_state.h"

namespace kalix {

// 0 when the bytes came back unchanged, else 22; later calls return the first one's result.
int mipmap_dma_test();

// Runs the test, says how it went, and notes it for surface definition. Returns 0.
int gpu_cap_test() KALIX_REQUIRES(_globals.device_mutex);

// Makes the next call test again; for a fresh driver state record.
void reset_self_test();

} // namespace kalix

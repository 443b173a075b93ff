// Lengths and places of the unzoomed picture, in pixels of the screen: times the device's zoom, toward zero. A zoom
// that is no number makes 0 of each, and what is too large for the type saturates.
#pragma once

#include "base/saturate.h"
#include "driver/state/driver_state.h"

namespace kalix {

inline int32_t zoomed(int32_t place)
{
    return truncated(static_cast<float>(place) * _globals.svga_device->zoom);
}

inline uint32_t zoomed_unsigned(uint32_t length)
{
    return truncated_unsigned(static_cast<float>(length) * _globals.svga_device->zoom);
}

} // namespace kalix

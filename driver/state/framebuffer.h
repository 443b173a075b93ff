// The framebuffer's bytes, and the bounds of what is copied into and out of them.
#pragma once

#include "driver/state/driver_state.h"

#include <span>

namespace kalix {

// Whether rows of row_bytes, pitch apart, the first at offset, all lie inside size bytes.
constexpr bool rows_fit(uint64_t size, uint64_t offset, uint32_t rows, uint32_t pitch, uint64_t row_bytes)
{
    if (rows == 0)
        return true;
    if (offset > size || row_bytes > size - offset)
        return false;
    return uint64_t{rows - 1} * pitch <= size - offset - row_bytes; // 32 x 32 bits fit in 64
}
static_assert(rows_fit(4096, 0, 2, 2048, 2048) && !rows_fit(4096, 1, 2, 2048, 2048));
static_assert(!rows_fit(4096, UINT64_MAX, 1, 0, 1) && !rows_fit(4096, 0, UINT32_MAX, UINT32_MAX, 1));

// All of the framebuffer; the picture on the screen is its beginning.
inline std::span<std::byte> framebuffer_bytes()
{
    return {reinterpret_cast<std::byte*>(_globals.svga_device->framebuffer), _globals.svga_device->fb_bytes};
}

// What lies from an offset on; nothing behind the end.
inline std::span<std::byte> framebuffer_from(uint64_t offset)
{
    const std::span<std::byte> all = framebuffer_bytes();
    return offset <= all.size() ? all.subspan(offset) : all.last(0);
}

// Offset in the framebuffer of a guest physical address; addresses are 32 bits wide and wrap.
inline uint32_t framebuffer_offset(uint64_t physical)
{
    return static_cast<uint32_t>(physical) - _globals.svga_device->fb_physical;
}

} // namespace kalix

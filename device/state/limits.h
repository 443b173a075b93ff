// What the raster core does, as numbers: the device's capability table announces these and nothing else, and the core
// is held to them, so that what is announced and what is done cannot part.
#pragma once

#include <cstdint>
#include <kalix/svga3d_types.h>

namespace kalix::device::limits {

inline constexpr uint32_t texture_stages = SVGA3D_TEXTURE_STAGES;
inline constexpr uint32_t clip_planes = SVGA3D_CLIP_PLANES;
inline constexpr uint32_t render_targets = 1;        // colour targets that one draw writes
inline constexpr float point_size = 256;             // pixels
inline constexpr uint32_t vertex_index = 0xFFFFFFFF; // any number of 32 bits whose vertex lies in its array

// Primitives of one draw, its ranges in sum. Vertices that lie on each other (a stride of 0) need no memory, so
// memory alone would not bound the work of a draw.
inline constexpr uint32_t primitives = 1u << 20;

// Pixels beyond this column or row of a target are never drawn. Window coordinates stay within as many
// pixels to either side of 0, so that products of coordinates in 1/256 pixel fit 64 bits.
inline constexpr int32_t extent = 1 << 20;

// Bit n: combiner operation n.
inline constexpr uint32_t texture_operations =
    0x07FFFFFEu & ~(1u << SVGA3D_TC_DSDT | 1u << SVGA3D_TC_PREMODULATE | 1u << SVGA3D_TC_BUMPENVMAPLUMINANCE);

} // namespace kalix::device::limits

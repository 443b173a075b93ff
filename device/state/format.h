// Surface formats: how texels are stored, and how they turn into colours and back.
//
// One table, indexed by SVGA3D format number, says everything that differs between formats; the rest of the device asks
// it and never switches on a format, but for the ways of drawing that are made for two of them (raster/span.cpp) and
// the layouts of depths (raster/depth_stencil.h). Sizes are the true storage sizes. Texels are little-endian and of any
// alignment. Nothing changes after the start, so every thread may ask.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kalix::device {

struct color {
    float r, g, b, a;
};

enum class format_kind : uint8_t {
    none,   // no such format
    color,  // decodes to a colour, encodes from one
    depth,  // a depth value, with or without stencil
    bytes,  // BUFFER: vertices, indices, anything
    opaque, // stored and copied, but neither sampled nor drawn to
};

struct format_info {
    format_kind kind = format_kind::none;
    uint8_t block_bytes = 0; // bytes of a block; 0 only for none
    uint8_t block_width = 1; // texels
    uint8_t block_height = 1;
    bool target = false;    // can be a colour target
    bool normalized = true; // channels lie in 0..1 (colours are clamped when encoded)
    // Reads the texel at this address / writes one; null where the kind has no colours, and both also for
    // compressed formats, of which a texel is read by its place in a block.
    color (*decode)(const std::byte* texel) = nullptr;
    void (*encode)(const color& value, std::byte* texel) = nullptr;
    color (*decode_block)(const std::byte* block, uint32_t x, uint32_t y) = nullptr;

    bool can_be_sampled() const { return decode || decode_block; }
};

// Never fails: an unknown number gives a format of kind none.
const format_info& format_of(uint32_t format);

} // namespace kalix::device

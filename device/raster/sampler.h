// Texture sampling: one stage's texture, and the colour at a coordinate.
//
// A texture is flat, a cube of six faces, or a volume. Coordinates in texels are rounded to the nearest 2^-16 before a
// texel is chosen, so that a picture of equal size takes each texel once, although the coordinates of its pixels have
// been rounded. A texture that is not there samples 0, 0, 0, 1. The general way, for all formats and address modes; a
// sampler is made once a draw, has no state of its own after that, and is asked by all threads.
#pragma once

#include "device/raster/raster.h"

#include <array>
#include <cstdint>
#include <vector>

namespace kalix::device::raster {

enum class texture_shape : uint8_t { none, flat, cube, volume };

struct sampler {
    texture_shape shape = texture_shape::none;
    std::vector<image_view> levels{}; // face by face
    uint32_t level_count = 0;         // of a face
    uint32_t first_level = 0;         // the most detailed one that may be used
    uint32_t address_u = SVGA3D_TEX_ADDRESS_WRAP, address_v = SVGA3D_TEX_ADDRESS_WRAP,
             address_w = SVGA3D_TEX_ADDRESS_WRAP;
    uint32_t magnify = SVGA3D_TEX_FILTER_NEAREST, minify = SVGA3D_TEX_FILTER_NEAREST;
    uint32_t between_levels = SVGA3D_TEX_FILTER_NONE;
    double bias = 0;
    color border{};

    // Whether the level of detail changes what is sampled, so that it is worth working out.
    bool needs_detail() const { return magnify != minify || between_levels != SVGA3D_TEX_FILTER_NONE; }
    // An image that is there; one without texels for shape none.
    const image_view& image(uint32_t face, uint32_t level) const;
};

// Never fails: what cannot be sampled, or finds no memory, is a texture that is not there. Gives the surface its
// memory.
sampler make_sampler(const context& of, surface_store& surfaces, uint32_t stage);

using direction = std::array<double, 3>; // s, t, r

// Where a coordinate lies: on a face, at u, v and w of 0..1 across it.
struct texture_point {
    uint32_t face = 0;
    double u = 0, v = 0, w = 0;
};
// On the face of a cube that the largest component points at.
texture_point locate(const sampler& in, const direction& coordinate);
// The same on a given face, so that neighbours can be compared.
texture_point locate_on(const sampler& in, uint32_t face, const direction& coordinate);

// The colour there, at a level of detail (0 and less magnify).
color sample(const sampler& from, const texture_point& at, double detail);

// Level of detail of a step of one pixel to the right and one down: log2 of the longer of the two, in texels of the
// largest level (0), whatever level is the first that may be used, plus the bias.
double detail_of(const sampler& from, const texture_point& here, const texture_point& right,
                 const texture_point& below);

} // namespace kalix::device::raster

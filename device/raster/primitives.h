// Primitives: coverage of triangles, lines and points in the window, and their interpolated fragments.
//
// Pixel centres lie at integer coordinates; corners at steps of 1/256 pixel. Coverage is worked out in
// integers, the top-left rule decides shared edges, and values are interpolated in double precision.
#pragma once

#include "device/raster/fragment.h"

#include <array>

namespace kalix::device::raster {

// Twice the signed area, in 1/256 pixel squared; positive for corners that follow each other clockwise as seen.
int64_t doubled_area(const window_vertex& a, const window_vertex& b, const window_vertex& c);

// What is the same for all pixels of a shape; the depth biases are in depths of 0..1.
struct triangle_state {
    bool back_face = false;
    double depth_bias = 0, slope_bias = 0;
    const double* flat = nullptr; // values that a flat primitive takes its colours from; null: smooth
};

// Each draws what lies in the share's rows.
void draw_triangle(const draw_setup& setup, const triangle_state& state, std::array<window_vertex, 3> corners,
                   share& of);

// A line; its last pixel is left out unless asked for.
void draw_line(const draw_setup& setup, const triangle_state& state, const window_vertex& from, const window_vertex& to,
               bool last_pixel, share& of);

// The pixels whose centres a point of a size in pixels covers.
pixel_rect point_pixels(const window_vertex& at, double size);

// A point of a size in pixels; as a sprite every stage's coordinates run over it.
void draw_point(const draw_setup& setup, const triangle_state& state, const window_vertex& at, double size, bool sprite,
                share& of);

} // namespace kalix::device::raster

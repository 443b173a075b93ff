// Geometry: from vertices by number to shapes in the window, ready for any thread to draw.
//
// Primitives are worked out a batch at a time. A batch keeps its shapes in their order, and the vertices that they
// point at, until it is cleared; its memory, which never grows, stays for the batches to come, and what does not fit
// goes into another batch. Vertices transformed last are found again by number, since neighbours in a mesh share them.
//
// Culling, fill modes and flat shading are decided here, so that what draws shapes knows triangles, lines and points.
#pragma once

#include "device/raster/clip.h"
#include "device/raster/primitives.h"

#include <span>
#include <vector>

namespace kalix::device::raster {

// Its vertices and its flat values lie in the batch that it is part of.
struct window_shape {
    std::array<vertex*, 3> at;
    const double* flat;  // the values that a flat primitive takes its colours from; null: smooth
    int32_t top, bottom; // rows of the target that it may touch, bottom not included
    uint8_t corners;     // 1 a point, 2 a line, 3 a triangle
    bool back_face;
};

struct primitive {
    std::array<uint32_t, 3> numbers; // of its vertices
    uint32_t corners;                // 1 a point, 2 a line, 3 a triangle
    uint32_t flat;                   // the corner that gives the colours of flat shading
};

// The vertices of a batch by number. Each number has its place, and the last vertex there is the one known.
class vertex_cache {
public:
    // Forgets all: what is put from now on is of another generation.
    void clear()
    {
        if (++generation_ == 0) {
            places_ = {};
            generation_ = 1;
        }
    }

    struct place {
        uint32_t number, generation;
        vertex* at;
    };
    place& of(uint32_t number) { return places_[number % places_.size()]; }
    bool knows(const place& in, uint32_t number) const { return in.number == number && in.generation == generation_; }
    void put(place& in, uint32_t number, vertex* at) { in = {number, generation_, at}; }

private:
    // A vertex that loses its place to another number stays in the batch, and is worked out once more when it is asked
    // for.
    std::array<place, 512> places_{};
    uint32_t generation_ = 0;
};

// What some primitives of a draw became.
struct batch {
    // Eight for each of the 1024 primitives that draw.cpp takes at a time; what clipping makes more of goes on in
    // another batch.
    static constexpr size_t shapes_max = 8192;

    batch() { shapes.reserve(shapes_max); }

    std::vector<window_shape> shapes; // at most so many
    uint32_t end = 0;                 // of the draw's primitives, the first behind its own
    uint64_t pixels = 0;              // that the shapes may cover, counted generously
    vertex_store vertices;
    vertex_cache known;
};

// A draw's way from vertices to shapes; changes nothing of itself, so that threads share it.
class geometry {
public:
    // Keeps the addresses of setup and fetch.
    geometry(const context& of, const draw_setup& setup, const vertex_fetch& fetch, bool has_point_lists);

    // Empties a batch for primitives of this draw.
    void begin(batch& to) const;
    // How many primitives are sure to fit beside what the batch has; never none in an empty one.
    size_t room(const batch& in) const;
    // Adds primitives, for which there is room, at most so many at a time.
    static constexpr size_t added_max = together_max / 3;
    void add(batch& to, std::span<const primitive> some) const;

    // What is the same for all shapes of the draw.
    double depth_bias() const { return state_.depth_bias; }
    double slope_bias() const { return slope_bias_; }

private:
    using corners_of = std::array<vertex*, 3>;

    void add(batch& to, const primitive& what, const corners_of& corners) const;
    void add_triangle(batch& to, const corners_of& corners, const double* flat) const;
    void add_polygon(batch& to, std::span<vertex* const> corners, const corners_of& whole, const double* flat) const;
    void add_line(batch& to, vertex* from, vertex* end, bool back_face, const double* flat) const;
    void add_point(batch& to, vertex* at, bool back_face, const double* flat) const;
    void push(batch& to, window_shape shape, const pixel_rect& reach) const;
    bool put_into_window(std::span<vertex* const> corners) const;
    bool is_culled(bool back_face) const;

    pixel_rect area_; // of the target
    uint32_t fill_, cull_;
    bool flat_, front_is_clockwise_;
    double slope_bias_;
    transform_state state_;
    clipper clip_;
};

} // namespace kalix::device::raster

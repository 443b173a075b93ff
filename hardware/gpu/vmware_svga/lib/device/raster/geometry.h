// Geometry: from vertices by number to shapes in the window, ready for any thread to draw.
//
// Shapes are collected a few thousand at a time, in their order; their values lie in memory of the collection
// and stay until it is cleared. Vertices transformed last are kept by number, since neighbours in a mesh
// share them.
#pragma once

#include "hardware/gpu/vmware_svga/lib/device/raster/clip.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/primitives.h"

#include <memory>
#include <span>
#include <vector>

namespace kalix::device::raster {

struct window_shape {
    uint32_t corners; // 1 a point, 2 a line, 3 a triangle
    triangle_state state;
    std::array<window_vertex, 3> at;
    bool last_pixel; // of a line
    double size;     // of a point, pixels
};

// Values of many vertices, handed out in order and given up all at once.
class value_store {
public:
    // Room for so many values, at most a block's.
    double* take(size_t count);
    void clear() { block_ = used_ = 0; }

private:
    static constexpr size_t block_values = 16384;
    std::vector<std::unique_ptr<double[]>> blocks_;
    size_t block_ = 0; // the one in use
    size_t used_ = 0;  // of it
};

class geometry {
public:
    geometry(const context& of, const draw_setup& setup, const vertex_fetch& fetch);

    // Adds a primitive of one to three vertices, of which one gives the colours of flat shading.
    void add(const std::array<uint32_t, 3>& numbers, uint32_t corners, uint32_t flat);

    std::span<const window_shape> list() const { return shapes_; }
    bool is_full() const { return shapes_.size() >= shapes_max; }
    uint64_t pixels() const { return pixels_; } // that the shapes may cover, counted generously
    void clear();

private:
    static constexpr size_t shapes_max = 4096;
    static constexpr size_t kept_vertices = 256;

    struct kept_vertex {
        bool filled = false, placed = false;
        uint32_t number = 0;
        vertex value;
        bool inside = false; // of every clip plane
        std::optional<window_vertex> window;
    };

    kept_vertex& vertex_of(uint32_t number);
    std::optional<window_vertex> placed(const vertex& from);
    const double* flat_values(uint32_t number);
    void add_triangle(const std::array<uint32_t, 3>& numbers, const double* flat);
    void add_polygon(std::span<const window_vertex> corners, const std::array<uint32_t, 3>& numbers,
                     const double* flat);
    void add_line(vertex from, vertex to, bool back_face, const double* flat);
    void add_point(const vertex& at, bool back_face, const double* flat);
    void push(uint32_t corners, bool back_face, const double* flat, const std::array<window_vertex, 3>& at,
              double size);
    bool is_culled(bool back_face) const;

    const draw_setup& setup_;
    const vertex_fetch& fetch_;
    transform_state state_;
    clipper clip_;
    uint32_t fill_, cull_;
    bool flat_, front_is_clockwise_, last_pixel_;
    double slope_bias_;
    std::vector<kept_vertex> kept_;
    std::vector<window_shape> shapes_;
    value_store values_;
    uint64_t pixels_ = 0;
};

} // namespace kalix::device::raster

// Quads of the post-processing pass: textured rectangles that are uploaded only when they change.
//
// A drawable object owns a slot of the pass's vertex and index surfaces and remembers the quad that it
// uploaded there. Belongs to the holder of fifo_lock, like the staging part of the dirty GMR.
#pragma once

#include "driver/state/driver_state.h"

#include <array>

namespace kalix {

struct quad_vertex { // as the device reads it
    int16_t x, y;    // target pixels
    float u, v;      // of the texture, 0 to 1
    uint32_t color;  // ARGB
};
static_assert(sizeof(quad_vertex) == 16);

struct drawable_object {
    std::array<quad_vertex, 4> vertices; // as uploaded last
    std::array<uint16_t, 4> indices;
    uint32_t slot;
};

inline constexpr uint32_t slot_vertex_bytes = 256; // of the vertex surface, for each slot
inline constexpr uint32_t slot_index_bytes = 64;
inline constexpr uint32_t drawable_slots = 4;

struct quad {
    int32_t x, y; // target pixels
    uint32_t width, height;
    float u_max, v_max; // the texture is shown from (0, 0) to here
    uint32_t color;
};

// A zero-filled object in the next slot, which lives until the process ends; null without memory or slots.
drawable_object* create_drawable_object();

// Starts staging anew: call once a pass, after the device has read what an earlier one staged.
void begin_uploads();
// Bytes staged since then.
uint32_t uploaded_bytes();

// Makes the object's place on the device hold that quad; uploads nothing when it does. Returns 0, or -12
// without FIFO space, and then the object counts as changed.
int update_buffers(drawable_object* object, const quad& wanted);

// 1 when the vertices and indices are the same, u and v compared as numbers; else 0, also for no object.
int obj_same(const drawable_object* a, const drawable_object* b);

// Draws the object's quad with the pass's context. Returns 0, or -12 without FIFO space.
int draw_rect(const drawable_object* object);

// Lets the next object take the first slot again, once all are gone; for a fresh driver state record.
void reset_drawable_slots();

} // namespace kalix

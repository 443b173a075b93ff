// DRAW_PRIMITIVES: every question first, for all ranges, and then the drawing, which asks none.

#include "device/raster/assembly.h"
#include "device/raster/batches.h"
#include "device/raster/workers.h"
#include "device/state/limits.h"

#include <algorithm>
#include <atomic>

namespace kalix::device {
namespace raster {
namespace {

struct planned_range {
    uint32_t type;
    uint32_t first, primitives; // of the draw's
    vertex_numbers vertices;
};

// What one draw is made of, once nothing of it can be refused.
struct planned_draw {
    vertex_fetch fetch;
    std::vector<planned_range> ranges;
    uint32_t primitives = 0;    // of all
    bool reads_targets = false; // its vertices lie in a surface that it draws to
};

bool is_index_width(const svga3d_primitive_range& range)
{
    return range.index_array.sid == SVGA3D_INVALID_ID || range.index_width == 1 || range.index_width == 2 ||
           range.index_width == 4;
}

// Everything of one range that could be refused. Indices are copied out here, once: what draws sees what was checked,
// even where a draw writes to the surface that its indices lie in.
draw_result plan_range(surface_store& surfaces, const svga3d_primitive_range& range, std::vector<uint32_t>& numbers,
                       planned_draw& out)
{
    const uint64_t vertices = vertices_of(range.primitive_type, range.primitive_count);
    // A range of no primitives has no vertices either, but its type is asked for all the same.
    const bool known = vertices_of(range.primitive_type, 1) != 0;
    if (!known || range.primitive_count > limits::primitives - out.primitives || !is_index_width(range))
        return draw_result::bad_range;
    const std::optional<vertex_numbers> found = read_indices(surfaces, range, vertices, numbers);
    if (!found || (vertices != 0 && !out.fetch.holds(found->largest)))
        return draw_result::outside;
    out.ranges.push_back({range.primitive_type, out.primitives, range.primitive_count, *found});
    out.primitives += range.primitive_count;
    return draw_result::done;
}

bool is_target(const context& of, uint32_t sid)
{
    return std::ranges::any_of(
        std::array{SVGA3D_RT_COLOR0, SVGA3D_RT_DEPTH, SVGA3D_RT_STENCIL},
        [&](svga3d_render_target target) { return sid != SVGA3D_INVALID_ID && of.targets[target].sid == sid; });
}

draw_result plan(const context& of, surface_store& surfaces, std::span<const svga3d_vertex_declaration> declarations,
                 std::span<const svga3d_primitive_range> ranges, std::vector<uint32_t>& numbers, planned_draw& out)
{
    if (const draw_result result = make_fetch(surfaces, declarations, out.fetch); result != draw_result::done)
        return result;
    out.reads_targets = std::ranges::any_of(
        declarations, [&](const svga3d_vertex_declaration& each) { return is_target(of, each.array.sid); });
    numbers.clear();
    out.ranges.reserve(ranges.size());
    for (const svga3d_primitive_range& range : ranges)
        if (const draw_result result = plan_range(surfaces, range, numbers, out); result != draw_result::done)
            return result;
    return draw_result::done;
}

bool has_point_lists(const planned_draw& what)
{
    return std::ranges::any_of(what.ranges,
                               [](const planned_range& range) { return range.type == SVGA3D_PRIMITIVE_POINTLIST; });
}

// Whether any of the rows from top to bottom is in a band of the share's.
bool meets(const share& mine, const window_shape& shape)
{
    const auto first = static_cast<uint32_t>(shape.top) >> share::band_shift;
    const auto last = static_cast<uint32_t>(shape.bottom - 1) >> share::band_shift;
    if (last - first + 1 >= mine.count)
        return true;
    return (mine.index + mine.count - first % mine.count) % mine.count <= last - first;
}

// Draws a planned draw from a context's state, alone or with workers; bounded memory, whatever the draw.
class draw_painter {
public:
    draw_painter(const context& of, const draw_setup& setup, const planned_draw& what, draw_memory& memory)
        : setup_{setup}, what_{what}, memory_{memory}, geometry_{of, setup, what.fetch, has_point_lists(what)}
    {
        last_pixel_ = of.render_states[SVGA3D_RS_LASTPIXEL] != 0;
        sprite_ = of.render_states[SVGA3D_RS_POINTSPRITEENABLE] != 0;
    }

    // Draws everything, and returns how many fragments passed.
    uint64_t draw(worker_pool* workers)
    {
        if (what_.primitives == 0)
            return 0;
        // Where a draw reads what it writes, the order of its pixels and vertices shows, and one thread keeps it.
        const uint32_t threads = workers && !setup_.feeds_back && !what_.reads_targets ? workers->count() : 1;
        if (threads == 1)
            return draw_alone();
        if (what_.primitives > worth_working_out)
            // About four batches for each thread, so that none has long to wait at the end.
            return draw_shared(*workers, std::clamp(what_.primitives / (4 * threads), 128u, batch_primitives), 0);
        memory_.make_batches(1);
        batch& only = *memory_.batches[0];
        work_out(only, 0, what_.primitives);
        // Few primitives may cover many pixels: worked out here, they are shared when they do.
        return only.pixels > worth_drawing ? draw_shared(*workers, batch_primitives, 1)
                                           : painted(only, what_.primitives, only, {0, 1, 0});
    }

private:
    static constexpr uint32_t batch_primitives = 1024; // few enough for the caches
    // Below these a wake-up costs more than it saves.
    static constexpr uint32_t worth_working_out = 512; // primitives
    static constexpr uint64_t worth_drawing = 16384;   // pixels
    static_assert(worth_working_out <= batch_primitives);

    uint64_t draw_alone()
    {
        memory_.make_batches(1);
        batch& only = *memory_.batches[0];
        work_out(only, 0, std::min(batch_primitives, what_.primitives));
        return painted(only, what_.primitives, only, {0, 1, 0});
    }

    // In batches of so many primitives, of which the first are ready. What a batch has no room for, every thread works
    // out for itself.
    uint64_t draw_shared(worker_pool& workers, uint32_t size, uint32_t ready)
    {
        const uint32_t threads = workers.count();
        const uint32_t count = (what_.primitives + size - 1) / size;
        const uint32_t places = std::min(count, 2 * threads + 4); // some threads may be that far ahead of others
        // Those behind the places are the threads' own spare ones.
        memory_.make_batches(places + threads);
        batch_order order{count, places, threads, ready};
        // A sum of integers is the same in any order.
        std::atomic<uint64_t> samples = 0;
        workers.run([&](uint32_t index) {
            for (batch_task task = order.next(index); task.step != batch_step::end; task = order.next(index)) {
                batch& of = *memory_.batches[task.which % places];
                const uint32_t from = task.which * size;
                const uint32_t end = std::min(from + size, what_.primitives);
                if (task.step == batch_step::work_out)
                    work_out(of, from, end);
                else
                    samples += painted(of, end, *memory_.batches[places + index], {index, threads, 0});
                order.finish(index, task);
            }
        });
        return samples;
    }

    // Works out a batch of the primitives from one on, up to an end or as far as there is room.
    void work_out(batch& to, uint32_t from, uint32_t end) const
    {
        geometry_.begin(to);
        to.end = from;
        // The last range that begins at or before it: ranges of no primitives begin where the next one does.
        auto range = std::ranges::upper_bound(what_.ranges, from, {}, &planned_range::first) - 1;
        for (; to.end < end && geometry_.room(to) != 0; ++range) {
            const uint32_t last = std::min(end, range->first + range->primitives);
            if (to.end < last)
                to.end = range->first + add(to, *range, to.end - range->first, last - range->first);
            if (to.end < last)
                return;
        }
    }

    // Adds primitives of one range, and returns which one comes next.
    uint32_t add(batch& to, const planned_range& range, uint32_t from, uint32_t end) const
    {
        const uint32_t* const numbers = memory_.numbers.data() + range.vertices.at;
        std::array<primitive, geometry::added_max> some;
        for (size_t room; from < end && (room = std::min(geometry_.room(to), some.size())) != 0;) {
            size_t count = 0;
            for (; from < end && count < room; ++from) {
                const assembled parts = assemble(range.type, from);
                primitive& next = some[count++];
                next.corners = parts.corners;
                next.flat = parts.flat;
                for (uint32_t corner = 0; corner < parts.corners; ++corner)
                    next.numbers[corner] = range.vertices.indexed
                                               ? numbers[parts.at[corner]]
                                               : range.vertices.first + static_cast<uint32_t>(parts.at[corner]);
            }
            geometry_.add(to, {some.data(), count});
        }
        return from;
    }

    // Draws a batch, and then in turn what is left up to an end, worked out in a spare one.
    uint64_t painted(const batch& first, uint32_t end, batch& spare, const share& mine) const
    {
        uint64_t samples = painted(first, mine);
        for (uint32_t next = first.end; next < end; next = spare.end) {
            work_out(spare, next, std::min(next + batch_primitives, end));
            samples += painted(spare, mine);
        }
        return samples;
    }

    uint64_t painted(const batch& from, share mine) const
    {
        for (const window_shape& shape : from.shapes) {
            if (!meets(mine, shape))
                continue;
            const triangle_state state{shape.back_face, geometry_.depth_bias(), geometry_.slope_bias(), shape.flat};
            const auto& [a, b, c] = shape.at;
            if (shape.corners == 3)
                draw_triangle(setup_, state, {a->window, b->window, c->window}, mine);
            else if (shape.corners == 2)
                draw_line(setup_, state, a->window, b->window, last_pixel_, mine);
            else
                draw_point(setup_, state, a->window, a->point_size, sprite_, mine);
        }
        return mine.samples;
    }

    const draw_setup& setup_;
    const planned_draw& what_;
    draw_memory& memory_;
    geometry geometry_;
    bool last_pixel_, sprite_;
};

} // namespace
} // namespace raster

draw_result draw_primitives(context& of, surface_store& surfaces,
                            std::span<const svga3d_vertex_declaration> declarations,
                            std::span<const svga3d_primitive_range> ranges, std::span<const uint32_t> divisors,
                            raster::worker_pool* workers)
{
    if (std::ranges::any_of(divisors, [](uint32_t divisor) { return divisor > 1; }))
        return draw_result::not_supported;
    raster::draw_setup setup;
    if (const draw_result result = raster::make_setup(of, surfaces, raster::are_transformed(declarations), setup);
        result != draw_result::done)
        return result;
    // Kept by the workers from draw to draw; without them, as tests draw, made for this one.
    raster::draw_memory own;
    raster::draw_memory& memory = workers ? workers->memory() : own;
    raster::planned_draw planned;
    if (const draw_result result = raster::plan(of, surfaces, declarations, ranges, memory.numbers, planned);
        result != draw_result::done)
        return result;
    const uint64_t samples = raster::draw_painter{of, setup, planned, memory}.draw(workers);
    if (of.query.active)
        of.query.samples += samples;
    return draw_result::done;
}

} // namespace kalix::device

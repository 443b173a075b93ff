// DRAW_PRIMITIVES: every question first, for all ranges, and then the drawing, which asks none.

#include "hardware/gpu/vmware_svga/lib/device/raster/assembly.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/geometry.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/limits.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/workers.h"

#include <algorithm>
#include <atomic>

namespace kalix::device {
namespace raster {
namespace {

struct planned_range {
    uint32_t type;
    uint32_t primitives;
    std::vector<uint32_t> numbers; // of the vertices, in order
};

bool is_index_width(const svga3d_primitive_range& range)
{
    return range.index_array.sid == SVGA3D_INVALID_ID || range.index_width == 1 || range.index_width == 2 ||
           range.index_width == 4;
}

// Everything of one range that could be refused.
draw_result plan_range(surface_store& surfaces, const vertex_fetch& fetch, const svga3d_primitive_range& range,
                       planned_range& out)
{
    const uint64_t vertices = vertices_of(range.primitive_type, range.primitive_count);
    const bool known = vertices_of(range.primitive_type, 1) != 0;
    if (!known || range.primitive_count > limits::primitives || !is_index_width(range))
        return draw_result::bad_range;
    std::optional<std::vector<uint32_t>> numbers = read_indices(surfaces, range, vertices);
    if (!numbers || (!numbers->empty() && !fetch.holds(std::ranges::max(*numbers))))
        return draw_result::outside;
    out = {range.primitive_type, range.primitive_count, std::move(*numbers)};
    return draw_result::done;
}

// Draws primitives from a context's state, alone or with workers; bounded memory, whatever the draw.
class painter {
public:
    painter(const context& of, const draw_setup& setup, const vertex_fetch& fetch, worker_pool* workers)
        : setup_{setup}, shapes_{of, setup, fetch}, workers_{workers},
          sprite_{of.render_states[SVGA3D_RS_POINTSPRITEENABLE] != 0}
    {
    }

    void draw(const planned_range& range)
    {
        for (uint32_t i = 0; i < range.primitives; ++i) {
            const assembled parts = assemble(range.type, i);
            std::array<uint32_t, 3> numbers{};
            for (uint32_t corner = 0; corner < parts.corners; ++corner)
                numbers[corner] = range.numbers[parts.at[corner]];
            shapes_.add(numbers, parts.corners, parts.flat);
            if (shapes_.is_full())
                flush();
        }
    }

    // Draws what has been collected.
    void flush()
    {
        constexpr uint64_t worth_sharing = 16384; // pixels; below that a wake-up costs more than it saves
        const bool shares = workers_ && !setup_.feeds_back && shapes_.pixels() > worth_sharing;
        const uint32_t count = shares ? workers_->count() : 1;
        if (count == 1) {
            samples_ += painted({0, 1, 0});
        } else {
            std::atomic<uint64_t> samples = 0;
            workers_->run([&](uint32_t index) { samples += painted({index, count, 0}); });
            samples_ += samples;
        }
        shapes_.clear();
    }

    uint64_t samples() const { return samples_; }

private:
    uint64_t painted(share mine) const
    {
        for (const window_shape& shape : shapes_.list())
            if (shape.corners == 3)
                draw_triangle(setup_, shape.state, shape.at, mine);
            else if (shape.corners == 2)
                draw_line(setup_, shape.state, shape.at[0], shape.at[1], shape.last_pixel, mine);
            else
                draw_point(setup_, shape.state, shape.at[0], shape.size, sprite_, mine);
        return mine.samples;
    }

    const draw_setup& setup_;
    geometry shapes_;
    worker_pool* workers_;
    bool sprite_;
    uint64_t samples_ = 0;
};

draw_result plan(surface_store& surfaces, std::span<const svga3d_vertex_declaration> declarations,
                 std::span<const svga3d_primitive_range> ranges, vertex_fetch& fetch, std::vector<planned_range>& out)
{
    if (const draw_result result = make_fetch(surfaces, declarations, fetch); result != draw_result::done)
        return result;
    uint64_t primitives = 0;
    for (const svga3d_primitive_range& range : ranges) {
        primitives += range.primitive_count;
        if (primitives > limits::primitives)
            return draw_result::bad_range;
        if (const draw_result result = plan_range(surfaces, fetch, range, out.emplace_back());
            result != draw_result::done)
            return result;
    }
    return draw_result::done;
}

} // namespace
} // namespace raster

draw_result draw_primitives(context& of, surface_store& surfaces,
                            std::span<const svga3d_vertex_declaration> declarations,
                            std::span<const svga3d_primitive_range> ranges, std::span<const uint32_t> divisors,
                            raster::worker_pool* workers)
{
    if (std::ranges::any_of(divisors, [](uint32_t divisor) { return divisor > 1; }))
        return draw_result::not_supported;
    raster::vertex_fetch fetch;
    std::vector<raster::planned_range> planned;
    raster::draw_setup setup;
    if (const draw_result result = raster::make_setup(of, surfaces, setup); result != draw_result::done)
        return result;
    if (const draw_result result = raster::plan(surfaces, declarations, ranges, fetch, planned);
        result != draw_result::done)
        return result;
    raster::painter paint{of, setup, fetch, workers};
    for (const raster::planned_range& range : planned)
        paint.draw(range);
    paint.flush();
    if (of.query.active)
        of.query.samples += paint.samples();
    return draw_result::done;
}

} // namespace kalix::device

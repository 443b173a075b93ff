// CLEAR and DRAW_PRIMITIVES: their lists, and what becomes of the raster core's answer.

#include "device/commands/commands.h"
#include "device/raster/raster.h"

namespace kalix::device {
namespace {

// The raster core knows no counters of refusals; its answers become those of commands here.
outcome outcome_of(draw_result result)
{
    switch (result) {
    case draw_result::done:
        return executed;
    case draw_result::no_target:
        return KALIX_REFUSED_NO_TARGET;
    case draw_result::bad_declaration:
    case draw_result::bad_range:
        return KALIX_REFUSED_BAD_VALUE;
    case draw_result::outside:
        return KALIX_REFUSED_OUTSIDE;
    case draw_result::not_supported:
        return KALIX_REFUSED_NOT_SUPPORTED;
    }
    return KALIX_REFUSED_NOT_SUPPORTED;
}

// A command without rectangles clears nothing.
outcome clear(device_state& device, command_reader body)
{
    svga3d_clear command;
    std::vector<svga3d_rect> rects;
    if (!body.take(command) || !body.take_rest(rects))
        return KALIX_REFUSED_SHORT_COMMAND;
    const auto in = device.contexts.find(command.cid);
    if (in == device.contexts.end())
        return KALIX_REFUSED_NO_CONTEXT;
    return outcome_of(clear_targets(in->second, device.surfaces, command, rects, device.workers));
}

outcome draw(device_state& device, command_reader body)
{
    svga3d_draw_primitives command;
    std::vector<svga3d_vertex_declaration> declarations;
    std::vector<svga3d_primitive_range> ranges;
    std::vector<uint32_t> divisors;
    if (!body.take(command) || !body.take_list(declarations, command.declarations) ||
        !body.take_list(ranges, command.ranges))
        return KALIX_REFUSED_SHORT_COMMAND;
    // Either nothing stands behind the ranges, or one divisor for each declaration.
    if (body.left() != 0 && !body.take_list(divisors, command.declarations))
        return KALIX_REFUSED_SHORT_COMMAND;
    const auto in = device.contexts.find(command.cid);
    if (in == device.contexts.end())
        return KALIX_REFUSED_NO_CONTEXT;
    // Counted before the draw is judged: a refused one is a draw as well.
    ++device.counts.values.draws;
    return outcome_of(draw_primitives(in->second, device.surfaces, declarations, ranges, divisors, device.workers));
}

constexpr command_row rows[] = {
    {SVGA_3D_CMD_CLEAR, sizeof(svga3d_clear), clear},
    {SVGA_3D_CMD_DRAW_PRIMITIVES, sizeof(svga3d_draw_primitives), draw},
};

} // namespace

std::span<const command_row> draw_commands()
{
    return rows;
}

} // namespace kalix::device

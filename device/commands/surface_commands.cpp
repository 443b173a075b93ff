// Definition and destruction of surfaces. What a surface holds is given memory at its first use (state/surface.h), so
// defining one costs its record.

#include "device/commands/commands.h"
#include "device/state/format.h"

#include <numeric>

namespace kalix::device {
namespace {

constexpr uint64_t levels_max = 144; // of all faces

// A context that bound the old surface must not find the next one of its id in the same place.
void unbind_everywhere(device_state& device, uint32_t sid)
{
    for (auto& [cid, each] : device.contexts)
        unbind_surface(each, sid);
}

outcome surface_define(device_state& device, command_reader body)
{
    svga3d_surface_define definition;
    if (!body.take(definition))
        return KALIX_REFUSED_SHORT_COMMAND;
    const uint64_t levels =
        std::accumulate(std::begin(definition.mip_levels), std::end(definition.mip_levels), uint64_t{0});
    // Before the sizes are taken, which are as many as the levels say.
    if (definition.sid == SVGA3D_INVALID_ID || levels > levels_max)
        return KALIX_REFUSED_BAD_VALUE;
    std::vector<svga3d_size> sizes;
    if (!body.take_list(sizes, levels))
        return KALIX_REFUSED_SHORT_COMMAND;
    if (device.surfaces.count() >= surfaces_max && !device.surfaces.find(definition.sid))
        return KALIX_REFUSED_NO_MEMORY;
    if (!device.surfaces.define(definition, sizes))
        return KALIX_REFUSED_BAD_VALUE;
    unbind_everywhere(device, definition.sid);
    return executed;
}

outcome surface_destroy(device_state& device, command_reader body)
{
    svga3d_surface_destroy command;
    if (!body.take(command))
        return KALIX_REFUSED_SHORT_COMMAND;
    if (!device.surfaces.destroy(command.sid))
        return KALIX_REFUSED_NO_SURFACE;
    unbind_everywhere(device, command.sid);
    return executed;
}

constexpr command_row rows[] = {
    {SVGA_3D_CMD_SURFACE_DEFINE, sizeof(svga3d_surface_define), surface_define},
    {SVGA_3D_CMD_SURFACE_DESTROY, sizeof(svga3d_surface_destroy), surface_destroy},
};

} // namespace

std::span<const command_row> surface_commands()
{
    return rows;
}

} // namespace kalix::device

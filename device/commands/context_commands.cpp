// Contexts: their definition, and every state that a command sets.
//
// States are kept as the words that they come as. What a value means, and whether a surface that it names is there, is
// asked by the draw that uses it, since both may change in between; only indices are checked here.

#include "device/commands/commands.h"

namespace kalix::device {
namespace {

// A command whose record begins with the context's id and whose setter judges the rest.
template <typename record, bool (*setter)(context&, const record&)>
outcome set_one(device_state& device, command_reader body)
{
    record value;
    if (!body.take(value))
        return KALIX_REFUSED_SHORT_COMMAND;
    const auto found = device.contexts.find(value.cid);
    if (found == device.contexts.end())
        return KALIX_REFUSED_NO_CONTEXT;
    return setter(found->second, value) ? executed : outcome{KALIX_REFUSED_BAD_VALUE};
}

// A command of a context's id and a list. A bad value undoes those before it.
template <typename record, auto member, bool (*setter)(context&, const record&)>
outcome set_list(device_state& device, command_reader body)
{
    context* const in = take_context(device, body);
    if (!in)
        return KALIX_REFUSED_NO_CONTEXT;
    std::vector<record> values;
    if (!body.take_rest(values))
        return KALIX_REFUSED_SHORT_COMMAND;
    const auto before = in->*member;
    for (const record& each : values)
        if (!setter(*in, each)) {
            in->*member = before;
            return KALIX_REFUSED_BAD_VALUE;
        }
    return executed;
}

bool set_z_range(context& to, const svga3d_set_z_range& value)
{
    to.z_min = value.min;
    to.z_max = value.max;
    return true;
}

bool set_viewport(context& to, const svga3d_set_viewport& value)
{
    to.viewport = value.rect;
    return true;
}

bool set_scissor_rect(context& to, const svga3d_set_scissor_rect& value)
{
    to.scissor = value.rect;
    return true;
}

outcome context_define(device_state& device, command_reader body)
{
    svga3d_context named;
    if (!body.take(named))
        return KALIX_REFUSED_SHORT_COMMAND;
    if (named.cid == SVGA3D_INVALID_ID)
        return KALIX_REFUSED_BAD_VALUE;
    if (device.contexts.size() >= contexts_max && !device.contexts.contains(named.cid))
        return KALIX_REFUSED_NO_MEMORY;
    // A context that is defined once more begins anew: its shaders and its query are gone, as are its states.
    device.contexts.insert_or_assign(named.cid, new_context(named.cid));
    return executed;
}

outcome context_destroy(device_state& device, command_reader body)
{
    svga3d_context named;
    if (!body.take(named))
        return KALIX_REFUSED_SHORT_COMMAND;
    return device.contexts.erase(named.cid) != 0 ? executed : outcome{KALIX_REFUSED_NO_CONTEXT};
}

outcome context_set_transform(device_state& device, command_reader body)
{
    return set_one<svga3d_set_transform, set_transform>(device, body);
}

outcome context_set_z_range(device_state& device, command_reader body)
{
    return set_one<svga3d_set_z_range, set_z_range>(device, body);
}

outcome context_set_render_states(device_state& device, command_reader body)
{
    return set_list<svga3d_render_state_value, &context::render_states, set_render_state>(device, body);
}

outcome context_set_render_target(device_state& device, command_reader body)
{
    return set_one<svga3d_set_render_target, set_render_target>(device, body);
}

outcome context_set_texture_states(device_state& device, command_reader body)
{
    return set_list<svga3d_texture_state_value, &context::texture_states, set_texture_state>(device, body);
}

outcome context_set_material(device_state& device, command_reader body)
{
    return set_one<svga3d_set_material, set_material>(device, body);
}

outcome context_set_light_data(device_state& device, command_reader body)
{
    return set_one<svga3d_set_light_data, set_light_data>(device, body);
}

outcome context_set_light_enabled(device_state& device, command_reader body)
{
    return set_one<svga3d_set_light_enabled, set_light_enabled>(device, body);
}

outcome context_set_viewport(device_state& device, command_reader body)
{
    return set_one<svga3d_set_viewport, set_viewport>(device, body);
}

outcome context_set_clip_plane(device_state& device, command_reader body)
{
    return set_one<svga3d_set_clip_plane, set_clip_plane>(device, body);
}

outcome context_set_scissor_rect(device_state& device, command_reader body)
{
    return set_one<svga3d_set_scissor_rect, set_scissor_rect>(device, body);
}

constexpr command_row rows[] = {
    {SVGA_3D_CMD_CONTEXT_DEFINE, sizeof(svga3d_context), context_define},
    {SVGA_3D_CMD_CONTEXT_DESTROY, sizeof(svga3d_context), context_destroy},
    {SVGA_3D_CMD_SETTRANSFORM, sizeof(svga3d_set_transform), context_set_transform},
    {SVGA_3D_CMD_SETZRANGE, sizeof(svga3d_set_z_range), context_set_z_range},
    {SVGA_3D_CMD_SETRENDERSTATE, sizeof(svga3d_context), context_set_render_states},
    {SVGA_3D_CMD_SETRENDERTARGET, sizeof(svga3d_set_render_target), context_set_render_target},
    {SVGA_3D_CMD_SETTEXTURESTATE, sizeof(svga3d_context), context_set_texture_states},
    {SVGA_3D_CMD_SETMATERIAL, sizeof(svga3d_set_material), context_set_material},
    {SVGA_3D_CMD_SETLIGHTDATA, sizeof(svga3d_set_light_data), context_set_light_data},
    {SVGA_3D_CMD_SETLIGHTENABLED, sizeof(svga3d_set_light_enabled), context_set_light_enabled},
    {SVGA_3D_CMD_SETVIEWPORT, sizeof(svga3d_set_viewport), context_set_viewport},
    {SVGA_3D_CMD_SETCLIPPLANE, sizeof(svga3d_set_clip_plane), context_set_clip_plane},
    {SVGA_3D_CMD_SETSCISSORRECT, sizeof(svga3d_set_scissor_rect), context_set_scissor_rect},
};

} // namespace

std::span<const command_row> context_commands()
{
    return rows;
}

} // namespace kalix::device

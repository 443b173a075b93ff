#include "device/commands/commands.h"

#include <array>
#include <new>

namespace kalix::device {
namespace {

constexpr size_t commands = SVGA_3D_CMD_LAST - SVGA_3D_CMD_BASE + 1;

constexpr auto rows = [] {
    std::array<command_row, commands> table{};
    const auto set = [&table](uint32_t id, command_function execute, size_t least_bytes) {
        table[id - SVGA_3D_CMD_BASE] = {execute, static_cast<uint32_t>(least_bytes)};
    };
    set(SVGA_3D_CMD_SURFACE_DEFINE, surface_define, sizeof(svga3d_surface_define));
    set(SVGA_3D_CMD_SURFACE_DESTROY, surface_destroy, sizeof(svga3d_surface_destroy));
    set(SVGA_3D_CMD_SURFACE_COPY, surface_copy, sizeof(svga3d_surface_copy));
    set(SVGA_3D_CMD_SURFACE_STRETCHBLT, surface_stretchblt, sizeof(svga3d_surface_stretchblt));
    set(SVGA_3D_CMD_SURFACE_DMA, surface_dma, sizeof(svga3d_surface_dma));
    set(SVGA_3D_CMD_CONTEXT_DEFINE, context_define, sizeof(svga3d_context));
    set(SVGA_3D_CMD_CONTEXT_DESTROY, context_destroy, sizeof(svga3d_context));
    set(SVGA_3D_CMD_SETTRANSFORM, context_set_transform, sizeof(svga3d_set_transform));
    set(SVGA_3D_CMD_SETZRANGE, context_set_z_range, sizeof(svga3d_set_z_range));
    set(SVGA_3D_CMD_SETRENDERSTATE, context_set_render_states, sizeof(svga3d_context));
    set(SVGA_3D_CMD_SETRENDERTARGET, context_set_render_target, sizeof(svga3d_set_render_target));
    set(SVGA_3D_CMD_SETTEXTURESTATE, context_set_texture_states, sizeof(svga3d_context));
    set(SVGA_3D_CMD_SETMATERIAL, context_set_material, sizeof(svga3d_set_material));
    set(SVGA_3D_CMD_SETLIGHTDATA, context_set_light_data, sizeof(svga3d_set_light_data));
    set(SVGA_3D_CMD_SETLIGHTENABLED, context_set_light_enabled, sizeof(svga3d_set_light_enabled));
    set(SVGA_3D_CMD_SETVIEWPORT, context_set_viewport, sizeof(svga3d_set_viewport));
    set(SVGA_3D_CMD_SETCLIPPLANE, context_set_clip_plane, sizeof(svga3d_set_clip_plane));
    set(SVGA_3D_CMD_CLEAR, clear, sizeof(svga3d_clear));
    set(SVGA_3D_CMD_PRESENT, present, sizeof(svga3d_present));
    set(SVGA_3D_CMD_SHADER_DEFINE, shader_define, sizeof(svga3d_shader_define));
    set(SVGA_3D_CMD_SHADER_DESTROY, shader_destroy, sizeof(svga3d_shader_destroy));
    set(SVGA_3D_CMD_SET_SHADER, shader_set, sizeof(svga3d_set_shader));
    set(SVGA_3D_CMD_SET_SHADER_CONST, shader_set_constant, sizeof(svga3d_set_shader_const));
    set(SVGA_3D_CMD_DRAW_PRIMITIVES, draw, sizeof(svga3d_draw_primitives));
    set(SVGA_3D_CMD_SETSCISSORRECT, context_set_scissor_rect, sizeof(svga3d_set_scissor_rect));
    set(SVGA_3D_CMD_BEGIN_QUERY, query_begin, sizeof(svga3d_begin_query));
    set(SVGA_3D_CMD_END_QUERY, query_end, sizeof(svga3d_query));
    set(SVGA_3D_CMD_WAIT_FOR_QUERY, query_wait, sizeof(svga3d_query));
    set(SVGA_3D_CMD_PRESENT_READBACK, present_readback, 0);
    set(SVGA_3D_CMD_BLIT_SURFACE_TO_SCREEN, blit_to_screen, sizeof(svga3d_blit_to_screen));
    return table;
}();

// A list that the host has no memory for is a refusal like any other.
outcome execute_row(device_state& device, const command_row& row, std::span<const std::byte> body)
{
    if (body.size() < row.least_bytes)
        return KALIX_REFUSED_SHORT_COMMAND;
    try {
        return row.execute(device, command_reader{body});
    } catch (const std::bad_alloc&) {
        return KALIX_REFUSED_NO_MEMORY;
    }
}

} // namespace

const command_row* command_of(uint32_t id)
{
    return id < SVGA_3D_CMD_BASE || id > SVGA_3D_CMD_LAST ? nullptr : &rows[id - SVGA_3D_CMD_BASE];
}

void execute(device_state& device, uint32_t id, std::span<const std::byte> body)
{
    const command_row* const row = command_of(id);
    device.counts.count_command(id);
    const outcome result = row ? execute_row(device, *row, body) : KALIX_REFUSED_UNKNOWN_COMMAND;
    if (result)
        device.counts.refuse(*result, id);
}

} // namespace kalix::device

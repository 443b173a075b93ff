// The builders: each lays one command's header, its fixed record and what follows it behind the list.
//
// All of a command is appended or none of it, so that a list stays fit for submission after -ENOSPC: the caller
// submits and tries again. Arguments are passed on unjudged, ids and enumerations alike; to check them is the
// server's work, which it cannot leave to a client, and a second check here would only disagree one day. What a null
// pointer means where it is allowed stands in client.h. No lock: a list belongs to one thread.

#include <kalix/client.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <span>

namespace {

using bytes = std::span<const std::byte>;

// What of a command follows its header; an array that should be there and is not makes it invalid.
struct part {
    bytes data;
    bool missing = false;
};

template <typename record>
part fixed(const record& one)
{
    return {std::as_bytes(std::span{&one, 1})};
}

template <typename record>
part array(const record* first, uint32_t count)
{
    if (!first)
        return {{}, count != 0};
    return {std::as_bytes(std::span{first, count})};
}

// Appends the parts as they stand, all or none.
int append(kalix_commands* list, std::initializer_list<part> parts)
{
    if (!list || !list->memory || list->used > list->capacity)
        return -EINVAL;
    // First whether all of it fits, then the copying.
    size_t left = list->capacity - list->used;
    for (const part& one : parts) {
        if (one.missing)
            return -EINVAL;
        if (one.data.size() > left)
            return -ENOSPC;
        left -= one.data.size();
    }
    for (const part& one : parts) {
        if (!one.data.empty())
            std::memcpy(static_cast<std::byte*>(list->memory) + list->used, one.data.data(), one.data.size());
        list->used += static_cast<uint32_t>(one.data.size());
    }
    return 0;
}

// Appends a 3D command. A body too long for its size field is too long for any list.
int append_3d(kalix_commands* list, uint32_t id, part head, part first = {}, part second = {}, part third = {})
{
    const size_t size = head.data.size() + first.data.size() + second.data.size() + third.data.size();
    if (size > UINT32_MAX)
        return -ENOSPC;
    const svga3d_command_header header{id, static_cast<uint32_t>(size)};
    return append(list, {fixed(header), head, first, second, third});
}

} // namespace

int kalix_cmd_update(kalix_commands* list, uint32_t x, uint32_t y, uint32_t width, uint32_t height)
{
    // The one 2D command: its id gives its length, so no word for that follows.
    constexpr uint32_t update_id = 1;
    return append(list, {fixed(std::array{update_id, x, y, width, height})});
}

int kalix_cmd_surface_define(kalix_commands* list, const svga3d_surface_define* surface, const svga3d_size* sizes,
                             uint32_t size_count)
{
    return append_3d(list, SVGA_3D_CMD_SURFACE_DEFINE, array(surface, 1), array(sizes, size_count));
}

int kalix_cmd_surface_destroy(kalix_commands* list, uint32_t sid)
{
    return append_3d(list, SVGA_3D_CMD_SURFACE_DESTROY, fixed(svga3d_surface_destroy{sid}));
}

int kalix_cmd_surface_copy(kalix_commands* list, const svga3d_image* source, const svga3d_image* destination,
                           const svga3d_copy_box* boxes, uint32_t box_count)
{
    return append_3d(list, SVGA_3D_CMD_SURFACE_COPY, array(source, 1), array(destination, 1), array(boxes, box_count));
}

int kalix_cmd_surface_stretchblt(kalix_commands* list, const svga3d_surface_stretchblt* blit)
{
    return append_3d(list, SVGA_3D_CMD_SURFACE_STRETCHBLT, array(blit, 1));
}

int kalix_cmd_surface_dma(kalix_commands* list, const svga3d_surface_dma* transfer, const svga3d_copy_box* boxes,
                          uint32_t box_count, const svga3d_surface_dma_suffix* suffix)
{
    return append_3d(list, SVGA_3D_CMD_SURFACE_DMA, array(transfer, 1), array(boxes, box_count),
                     array(suffix, suffix ? 1 : 0));
}

int kalix_cmd_context_define(kalix_commands* list, uint32_t cid)
{
    return append_3d(list, SVGA_3D_CMD_CONTEXT_DEFINE, fixed(svga3d_context{cid}));
}

int kalix_cmd_context_destroy(kalix_commands* list, uint32_t cid)
{
    return append_3d(list, SVGA_3D_CMD_CONTEXT_DESTROY, fixed(svga3d_context{cid}));
}

// Here and below, what the caller points at is a part apart from the record's head, so that a null pointer is told.
int kalix_cmd_set_transform(kalix_commands* list, uint32_t cid, uint32_t type, const float matrix[16])
{
    return append_3d(list, SVGA_3D_CMD_SETTRANSFORM, fixed(std::array{cid, type}), array(matrix, 16));
}

int kalix_cmd_set_z_range(kalix_commands* list, uint32_t cid, float min, float max)
{
    return append_3d(list, SVGA_3D_CMD_SETZRANGE, fixed(svga3d_set_z_range{cid, min, max}));
}

int kalix_cmd_set_render_states(kalix_commands* list, uint32_t cid, const svga3d_render_state_value* states,
                                uint32_t count)
{
    return append_3d(list, SVGA_3D_CMD_SETRENDERSTATE, fixed(cid), array(states, count));
}

int kalix_cmd_set_render_target(kalix_commands* list, uint32_t cid, uint32_t type, const svga3d_image* target)
{
    const svga3d_image none{SVGA3D_INVALID_ID, 0, 0}; // takes the target away
    return append_3d(list, SVGA_3D_CMD_SETRENDERTARGET,
                     fixed(svga3d_set_render_target{cid, type, target ? *target : none}));
}

int kalix_cmd_set_texture_states(kalix_commands* list, uint32_t cid, const svga3d_texture_state_value* states,
                                 uint32_t count)
{
    return append_3d(list, SVGA_3D_CMD_SETTEXTURESTATE, fixed(cid), array(states, count));
}

int kalix_cmd_set_material(kalix_commands* list, uint32_t cid, uint32_t face, const svga3d_material* material)
{
    return append_3d(list, SVGA_3D_CMD_SETMATERIAL, fixed(std::array{cid, face}), array(material, 1));
}

int kalix_cmd_set_light_data(kalix_commands* list, uint32_t cid, uint32_t index, const svga3d_light* light)
{
    return append_3d(list, SVGA_3D_CMD_SETLIGHTDATA, fixed(std::array{cid, index}), array(light, 1));
}

int kalix_cmd_set_light_enabled(kalix_commands* list, uint32_t cid, uint32_t index, uint32_t enabled)
{
    return append_3d(list, SVGA_3D_CMD_SETLIGHTENABLED, fixed(svga3d_set_light_enabled{cid, index, enabled}));
}

int kalix_cmd_set_viewport(kalix_commands* list, uint32_t cid, const svga3d_rect* rect)
{
    return append_3d(list, SVGA_3D_CMD_SETVIEWPORT, fixed(cid), array(rect, 1));
}

int kalix_cmd_set_clip_plane(kalix_commands* list, uint32_t cid, uint32_t index, const float plane[4])
{
    return append_3d(list, SVGA_3D_CMD_SETCLIPPLANE, fixed(std::array{cid, index}), array(plane, 4));
}

int kalix_cmd_clear(kalix_commands* list, uint32_t cid, uint32_t flags, uint32_t color, float depth, uint32_t stencil,
                    const svga3d_rect* rects, uint32_t rect_count)
{
    return append_3d(list, SVGA_3D_CMD_CLEAR, fixed(svga3d_clear{cid, flags, color, depth, stencil}),
                     array(rects, rect_count));
}

int kalix_cmd_present(kalix_commands* list, uint32_t sid, const svga3d_copy_rect* rects, uint32_t rect_count)
{
    return append_3d(list, SVGA_3D_CMD_PRESENT, fixed(svga3d_present{sid}), array(rects, rect_count));
}

int kalix_cmd_shader_define(kalix_commands* list, uint32_t cid, uint32_t shader, uint32_t type, const uint32_t* tokens,
                            uint32_t token_count)
{
    return append_3d(list, SVGA_3D_CMD_SHADER_DEFINE, fixed(svga3d_shader_define{cid, shader, type}),
                     array(tokens, token_count));
}

int kalix_cmd_shader_destroy(kalix_commands* list, uint32_t cid, uint32_t shader, uint32_t type)
{
    return append_3d(list, SVGA_3D_CMD_SHADER_DESTROY, fixed(svga3d_shader_destroy{cid, shader, type}));
}

int kalix_cmd_set_shader(kalix_commands* list, uint32_t cid, uint32_t type, uint32_t shader)
{
    return append_3d(list, SVGA_3D_CMD_SET_SHADER, fixed(svga3d_set_shader{cid, type, shader}));
}

int kalix_cmd_set_shader_const(kalix_commands* list, const svga3d_set_shader_const* constant)
{
    return append_3d(list, SVGA_3D_CMD_SET_SHADER_CONST, array(constant, 1));
}

// Divisors, when there are any, are one for each declaration; their count is told by the command's length alone.
int kalix_cmd_draw_primitives(kalix_commands* list, uint32_t cid, const svga3d_vertex_declaration* declarations,
                              uint32_t declaration_count, const svga3d_primitive_range* ranges, uint32_t range_count,
                              const uint32_t* divisors)
{
    return append_3d(list, SVGA_3D_CMD_DRAW_PRIMITIVES,
                     fixed(svga3d_draw_primitives{cid, declaration_count, range_count}),
                     array(declarations, declaration_count), array(ranges, range_count),
                     array(divisors, divisors ? declaration_count : 0));
}

int kalix_cmd_set_scissor_rect(kalix_commands* list, uint32_t cid, const svga3d_rect* rect)
{
    return append_3d(list, SVGA_3D_CMD_SETSCISSORRECT, fixed(cid), array(rect, 1));
}

int kalix_cmd_begin_query(kalix_commands* list, uint32_t cid, uint32_t type)
{
    return append_3d(list, SVGA_3D_CMD_BEGIN_QUERY, fixed(svga3d_begin_query{cid, type}));
}

int kalix_cmd_end_query(kalix_commands* list, uint32_t cid, uint32_t type, svga_guest_pointer result)
{
    return append_3d(list, SVGA_3D_CMD_END_QUERY, fixed(svga3d_query{cid, type, result}));
}

int kalix_cmd_wait_for_query(kalix_commands* list, uint32_t cid, uint32_t type, svga_guest_pointer result)
{
    return append_3d(list, SVGA_3D_CMD_WAIT_FOR_QUERY, fixed(svga3d_query{cid, type, result}));
}

int kalix_cmd_present_readback(kalix_commands* list, const svga3d_rect* rects, uint32_t rect_count)
{
    return append_3d(list, SVGA_3D_CMD_PRESENT_READBACK, {}, array(rects, rect_count));
}

int kalix_cmd_blit_surface_to_screen(kalix_commands* list, const svga3d_blit_to_screen* blit,
                                     const svga3d_signed_rect* clips, uint32_t clip_count)
{
    return append_3d(list, SVGA_3D_CMD_BLIT_SURFACE_TO_SCREEN, array(blit, 1), array(clips, clip_count));
}

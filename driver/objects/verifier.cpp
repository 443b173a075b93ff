#include "driver/objects/verifier.h"

#include "driver/objects/context.h"
#include "driver/objects/dma.h"
#include "driver/objects/gmr.h"
#include "driver/objects/surface.h"
#include "svga/command_reader.h"

#include <cstring>
#include <kalix/svga3d_types.h>

namespace kalix {
namespace {

using body_span = std::span<std::byte>;

constexpr uint32_t update_bytes = sizeof(svga_cmd_update); // the one command without a size
constexpr uint32_t table_last = 1081;                      // the interface reserves ids up to here
constexpr uint32_t no_id = SVGA3D_INVALID_ID;              // of a context, surface or region

// One walk over a command buffer: whose it is, and what was accepted last in it, so that a run of commands that
// name the same is looked up once. It ends with the buffer: an id may be another's in the next.
struct buffer_walk {
    client_record* client;
    const std::byte* begin; // of the buffer
    uint32_t last_cid = no_id;
    uint32_t last_sid = no_id;
};

uint32_t word_at(body_span body, size_t offset) // the table has made sure that body holds it
{
    uint32_t word;
    std::memcpy(&word, body.data() + offset, sizeof word);
    return word;
}

// Notes what refuses the buffer, for who asks the record behind the walk.
int refuse(const buffer_walk& walk, refusal_reason reason, uint32_t named)
{
    walk.client->refused.reason = reason;
    walk.client->refused.named = named;
    return status_invalid;
}

// ---- Identity: ids that a command names, and where in the driver's copy they stand ----------------

// A cid of all ones equals the walk's beginning and passes before any context was named: it names nothing.
int cmd_cid_check(buffer_walk& walk, body_span body) KALIX_REQUIRES(_globals.device_mutex)
{
    const uint32_t cid = word_at(body, 0);
    if (cid == walk.last_cid)
        return 0;
    if (context_check(walk.client, cid) != 0) {
        slogf(log_code, log_error, "kalix: cmd_cid_check: could not find or use context 0x%x", cid);
        return refuse(walk, refusal_reason::context, cid);
    }
    walk.last_cid = cid;
    return 0;
}

// The address that a line tells is the field's in the buffer: where the copy lies is nobody's business.
int cmd_sid_check(buffer_walk& walk, uint32_t sid, const std::byte* field) KALIX_REQUIRES(_globals.device_mutex)
{
    if (sid == SVGA3D_INVALID_ID || sid == walk.last_sid)
        return 0;
    if (surface_check(walk.client, sid) != 0) {
        slogf(log_code, log_error, "kalix: cmd_sid_check: could not find or use surface 0x%08x address 0x%08lx", sid,
              static_cast<unsigned long>(field - walk.begin));
        return refuse(walk, refusal_reason::surface, sid);
    }
    walk.last_sid = sid;
    return 0;
}

int sid_at(buffer_walk& walk, body_span body, size_t offset) KALIX_REQUIRES(_globals.device_mutex)
{
    return cmd_sid_check(walk, word_at(body, offset), body.data() + offset);
}

bool is_own_region(client_record* client, uint32_t region)
{
    const dma_buffer* const owner = dma_get_by_gmrId(region);
    return owner && resource_have_ref(RESOURCE_DMA, client, owner->id);
}

// Looks at the region that a command names at an offset of its body; record is what a whole one has there. Under
// strict settings it must be the client's own. Otherwise the driver's region alone is nobody's to name: the device
// gets none in its place, and so refuses this command and no other. It refuses what is cut short as well.
template <typename record>
int check_region(buffer_walk& walk, body_span body, size_t offset)
{
    if (_globals.settings.strict && body.size() < sizeof(record))
        return status_invalid;
    if (body.size() < offset + sizeof(uint32_t))
        return 0;
    const uint32_t region = word_at(body, offset);
    if (_globals.settings.strict)
        return is_own_region(walk.client, region) ? 0 : refuse(walk, refusal_reason::region, region);
    if (region == _globals.dirty_gmr_id)
        std::memcpy(body.data() + offset, &no_id, sizeof no_id);
    return 0;
}

// ---- Checks, one per kind of command ----------------------------------------------------------------

int cmd_ok(buffer_walk&, body_span)
{
    return 0;
}

// Defining and destroying goes through requests; commands that do it pass unless settings are strict.
int cmd_invalid(buffer_walk&, body_span)
{
    return _globals.settings.strict ? status_invalid : 0;
}

int cmd_surface_copy_check(buffer_walk& walk, body_span body) KALIX_REQUIRES(_globals.device_mutex)
{
    if (const int refused = sid_at(walk, body, offsetof(svga3d_surface_copy, source)))
        return refused;
    return sid_at(walk, body, offsetof(svga3d_surface_copy, destination));
}

int cmd_stretch_blt_check(buffer_walk& walk, body_span body) KALIX_REQUIRES(_globals.device_mutex)
{
    static_assert(offsetof(svga3d_surface_stretchblt, destination) == offsetof(svga3d_surface_copy, destination));
    return cmd_surface_copy_check(walk, body);
}

int cmd_surface_dma_check(buffer_walk& walk, body_span body) KALIX_REQUIRES(_globals.device_mutex)
{
    if (const int refused = check_region<svga3d_surface_dma>(walk, body, offsetof(svga3d_surface_dma, guest)))
        return refused;
    return _globals.settings.strict ? sid_at(walk, body, offsetof(svga3d_surface_dma, host)) : 0;
}

int cmd_set_render_target_check(buffer_walk& walk, body_span body) KALIX_REQUIRES(_globals.device_mutex)
{
    if (const int refused = cmd_cid_check(walk, body))
        return refused;
    return sid_at(walk, body, offsetof(svga3d_set_render_target, target));
}

int cmd_present_check(buffer_walk& walk, body_span body) KALIX_REQUIRES(_globals.device_mutex)
{
    return sid_at(walk, body, 0);
}

int cmd_blt_surf_screen_check(buffer_walk& walk, body_span body) KALIX_REQUIRES(_globals.device_mutex)
{
    return sid_at(walk, body, offsetof(svga3d_blit_to_screen, source));
}

int cmd_query(buffer_walk& walk, body_span body) KALIX_REQUIRES(_globals.device_mutex)
{
    if (const int refused = cmd_cid_check(walk, body))
        return refused;
    return check_region<svga3d_query>(walk, body, offsetof(svga3d_query, result));
}

int cmd_end_query(buffer_walk& walk, body_span body) KALIX_REQUIRES(_globals.device_mutex)
{
    return cmd_query(walk, body);
}
int cmd_wait_query(buffer_walk& walk, body_span body) KALIX_REQUIRES(_globals.device_mutex)
{
    return cmd_query(walk, body);
}

int cmd_tex_state(buffer_walk& walk, body_span body) KALIX_REQUIRES(_globals.device_mutex)
{
    if (const int refused = cmd_cid_check(walk, body))
        return refused;
    command_reader reader{body.subspan(sizeof(uint32_t))};
    svga3d_texture_state_value state;
    while (reader.left() > 0) {
        const std::byte* const at = reader.position();
        if (!reader.take(state))
            return status_invalid; // the last state is cut short
        if (state.name != SVGA3D_TS_BIND_TEXTURE)
            continue;
        if (const int refused = cmd_sid_check(walk, state.value, at + offsetof(svga3d_texture_state_value, value)))
            return refused;
    }
    return 0;
}

// Checks count records of one kind, each naming an array surface at the offset given.
template <typename record>
int check_arrays(buffer_walk& walk, command_reader& reader, uint32_t count, size_t sid_offset, void (*say_too_many)())
    KALIX_REQUIRES(_globals.device_mutex)
{
    if (count > reader.left() / sizeof(record)) {
        say_too_many();
        return status_invalid;
    }
    record each;
    for (; count > 0; --count) {
        const std::byte* const at = reader.position();
        if (!reader.take(each))
            return status_invalid;
        uint32_t sid;
        std::memcpy(&sid, reinterpret_cast<const std::byte*>(&each) + sid_offset, sizeof sid);
        if (const int refused = cmd_sid_check(walk, sid, at + sid_offset))
            return refused;
    }
    return 0;
}

int cmd_draw(buffer_walk& walk, body_span body) KALIX_REQUIRES(_globals.device_mutex)
{
    if (const int refused = cmd_cid_check(walk, body))
        return refused;
    svga3d_draw_primitives draw;
    command_reader reader{body};
    if (!reader.take(draw))
        return status_invalid;
    if (const int refused = check_arrays<svga3d_vertex_declaration>(
            walk, reader, draw.declarations, offsetof(svga3d_vertex_declaration, array),
            [] { slogf(log_code, log_error, "kalix: cmd_draw: illegal number of vertex declarations."); }))
        return refused;
    return check_arrays<svga3d_primitive_range>(
        walk, reader, draw.ranges, offsetof(svga3d_primitive_range, index_array),
        [] { slogf(log_code, log_error, "kalix: cmd_draw: illegal number of index ranges."); });
}

// ---- The table ----------------------------------------------------------------------------------------

struct command_row {
    int (*check)(buffer_walk&, body_span) = nullptr; // none: refused
    uint32_t body_min = 0;                           // bytes that the check reads without asking
};

constexpr uint32_t cid_bytes = sizeof(uint32_t);
constexpr uint32_t two_images = sizeof(svga3d_image) + sizeof(uint32_t);

constexpr auto cmd_funcs = [] {
    std::array<command_row, table_last - SVGA_3D_CMD_BASE + 1> rows{};
    const auto set = [&rows](uint32_t id, command_row row) { rows[id - SVGA_3D_CMD_BASE] = row; };
    set(SVGA_3D_CMD_SURFACE_DEFINE, {cmd_invalid, 0});
    set(SVGA_3D_CMD_SURFACE_DESTROY, {cmd_invalid, 0});
    set(SVGA_3D_CMD_SURFACE_COPY, {cmd_surface_copy_check, two_images});
    set(SVGA_3D_CMD_SURFACE_STRETCHBLT, {cmd_stretch_blt_check, two_images});
    set(SVGA_3D_CMD_SURFACE_DMA, {cmd_surface_dma_check, 0});
    set(SVGA_3D_CMD_CONTEXT_DEFINE, {cmd_invalid, 0});
    set(SVGA_3D_CMD_CONTEXT_DESTROY, {cmd_invalid, 0});
    for (const uint32_t id :
         {SVGA_3D_CMD_SETTRANSFORM, SVGA_3D_CMD_SETZRANGE, SVGA_3D_CMD_SETRENDERSTATE, SVGA_3D_CMD_SETMATERIAL,
          SVGA_3D_CMD_SETLIGHTDATA, SVGA_3D_CMD_SETLIGHTENABLED, SVGA_3D_CMD_SETVIEWPORT, SVGA_3D_CMD_SETCLIPPLANE,
          SVGA_3D_CMD_CLEAR, SVGA_3D_CMD_SHADER_DEFINE, SVGA_3D_CMD_SHADER_DESTROY, SVGA_3D_CMD_SET_SHADER,
          SVGA_3D_CMD_SET_SHADER_CONST, SVGA_3D_CMD_SETSCISSORRECT, SVGA_3D_CMD_BEGIN_QUERY})
        set(id, {cmd_cid_check, cid_bytes});
    set(SVGA_3D_CMD_SETRENDERTARGET, {cmd_set_render_target_check, 3 * sizeof(uint32_t)});
    set(SVGA_3D_CMD_SETTEXTURESTATE, {cmd_tex_state, cid_bytes});
    set(SVGA_3D_CMD_PRESENT, {cmd_present_check, sizeof(uint32_t)});
    set(SVGA_3D_CMD_DRAW_PRIMITIVES, {cmd_draw, sizeof(svga3d_draw_primitives)});
    set(SVGA_3D_CMD_END_QUERY, {cmd_end_query, cid_bytes});
    set(SVGA_3D_CMD_WAIT_FOR_QUERY, {cmd_wait_query, cid_bytes});
    set(SVGA_3D_CMD_PRESENT_READBACK, {cmd_ok, 0});
    set(SVGA_3D_CMD_BLIT_SURFACE_TO_SCREEN, {cmd_blt_surf_screen_check, sizeof(uint32_t)});
    return rows;
}();
static_assert(std::size(cmd_funcs) == 42);

// Whether the command at the start of left, whose length is known, may pass.
bool is_accepted(buffer_walk& walk, body_span left, uint32_t id, uint64_t length)
{
    if (length > left.size() || id < SVGA_3D_CMD_BASE || id > table_last)
        return false;
    const command_row& row = cmd_funcs[id - SVGA_3D_CMD_BASE];
    const body_span body = left.subspan(sizeof(svga3d_command_header), length - sizeof(svga3d_command_header));
    return row.check && body.size() >= row.body_min && row.check(walk, body) == 0;
}

// Checks the command at the start of what is left. 0 or -22; *length receives the command's bytes, which may be more
// than are left.
int cmd_check(buffer_walk& walk, body_span left, uint64_t* length)
{
    svga3d_command_header header{}; // what is missing of it is zero
    std::memcpy(&header, left.data(), std::min(left.size(), sizeof header));
    if (left.size() >= sizeof header.id && header.id == SVGA_CMD_UPDATE) {
        *length = update_bytes; // not compared with what is left: one that is cut off ends the walk out of step
        return 0;
    }
    *length = uint64_t{sizeof header} + header.size;
    if (is_accepted(walk, left, header.id, *length))
        return 0;
    if (walk.client->refused.reason == refusal_reason::other)
        walk.client->refused.reason = refusal_reason::command;
    walk.client->refused.command = header.id;
    slogf(log_code, log_error, "kalix: cmd_check: illegal / invalid SVGA3D command: %d", static_cast<int>(header.id));
    return status_invalid;
}

} // namespace

int cmd_check_all(client_record* client, body_span commands)
{
    buffer_walk walk{client, commands.data()};
    client->refused = {};
    // A count of 2^31 or more is negative to the walk, which then has nothing to look at.
    const bool countable = commands.size() <= INT32_MAX;
    while (countable && !commands.empty()) {
        uint64_t length = 0;
        if (const int refused = cmd_check(walk, commands, &length))
            return refused;
        if (length > commands.size())
            break;
        commands = commands.subspan(length);
    }
    if (commands.empty())
        return 0;
    client->refused.reason = refusal_reason::length;
    slogf(log_code, log_error, "kalix: command verifier out of sync.");
    return status_invalid;
}

} // namespace kalix

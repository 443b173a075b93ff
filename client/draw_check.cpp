// What a draw lacks: the states that decide whether it shows, followed through the commands that set them.
//
// Only mistakes that are certain are told: a draw without a target or with an empty viewport shows nothing whatever
// else is set. Whether a face is culled or lies outside depends on the vertices, which the device alone has.

#include "client/draw_check.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kalix::client_library {

namespace {

constexpr uint32_t update_id = 1; // the one 2D command: its id gives its length
constexpr size_t update_bytes = 20;

using bytes = std::span<const std::byte>;

// Takes a record off the front; false when no whole one is left.
template <typename record>
bool take(bytes& from, record& out)
{
    if (from.size() < sizeof out)
        return false;
    std::memcpy(&out, from.data(), sizeof out);
    from = from.subspan(sizeof out);
    return true;
}

} // namespace

draw_check::draw_check()
{
    const char* set = std::getenv("KALIX_DEBUG");
    asked_ = set && std::strcmp(set, "1") == 0;
}

void draw_check::look_at(uint32_t cid, bytes commands)
{
    if (!asked_)
        return;
    cid_ = cid;
    uint32_t id = 0;
    while (commands.size() >= sizeof id) {
        std::memcpy(&id, commands.data(), sizeof id);
        if (id == update_id && commands.size() >= update_bytes) {
            commands = commands.subspan(update_bytes);
            continue;
        }
        svga3d_command_header header{};
        if (!take(commands, header) || header.size > commands.size())
            return;
        follow(header.id, commands.first(header.size));
        commands = commands.subspan(header.size);
    }
}

void draw_check::follow(uint32_t id, bytes body)
{
    // Each of the commands below begins with its context.
    uint32_t cid = 0;
    bytes rest = body;
    if (!take(rest, cid) || cid != cid_)
        return;
    svga3d_set_viewport viewport{};
    switch (id) {
    case SVGA_3D_CMD_SETRENDERTARGET:
        return set_target(body);
    case SVGA_3D_CMD_SETRENDERSTATE:
        return set_render_states(rest);
    case SVGA_3D_CMD_SETTEXTURESTATE:
        return set_texture_states(rest);
    case SVGA_3D_CMD_SETVIEWPORT:
        has_viewport_ = take(body, viewport) && viewport.rect.w != 0 && viewport.rect.h != 0;
        return;
    case SVGA_3D_CMD_CLEAR:
        return clear(body);
    case SVGA_3D_CMD_DRAW_PRIMITIVES:
        return draw(body);
    default:
        return;
    }
}

void draw_check::set_target(bytes body)
{
    svga3d_set_render_target set{};
    if (!take(body, set) || set.type >= SVGA3D_RT_MAX)
        return;
    const uint32_t bit = 1u << set.type;
    targets_ = set.target.sid == SVGA3D_INVALID_ID ? targets_ & ~bit : targets_ | bit;
}

void draw_check::set_render_states(bytes body)
{
    for (svga3d_render_state_value one{}; take(body, one);)
        if (one.state == SVGA3D_RS_ZENABLE)
            tests_depth_ = one.value != 0;
}

void draw_check::set_texture_states(bytes body)
{
    for (svga3d_texture_state_value one{}; take(body, one);) {
        if (one.stage != 0)
            continue;
        if (one.name == SVGA3D_TS_BIND_TEXTURE)
            texture_ = one.value;
        else if (one.name == SVGA3D_TS_COLOROP)
            operation_ = one.value;
        else if (one.name == SVGA3D_TS_COLORARG1)
            first_ = one.value;
        else if (one.name == SVGA3D_TS_COLORARG2)
            second_ = one.value;
    }
}

void draw_check::clear(bytes body)
{
    svga3d_clear command{};
    if (!take(body, command))
        return;
    cleared_depth_ = cleared_depth_ || (command.flags & SVGA3D_CLEAR_DEPTH) != 0;
    ask_for_place();
}

// What draws and clears need alike: a clear is cut by the viewport as well.
void draw_check::ask_for_place()
{
    if (targets_ == 0)
        say(lack::target, "has no target and shows nothing: kalix_cmd_set_render_target()");
    if (!has_viewport_)
        say(lack::viewport, "has no viewport and shows nothing: kalix_cmd_set_viewport()");
}

// Where a missing texture, which is black, makes the stage's colour black.
bool draw_check::takes_missing_texture() const
{
    if (texture_ != SVGA3D_INVALID_ID)
        return false;
    switch (operation_) {
    case SVGA3D_TC_SELECTARG1:
        return first_ == SVGA3D_TA_TEXTURE;
    case SVGA3D_TC_SELECTARG2:
        return second_ == SVGA3D_TA_TEXTURE;
    case SVGA3D_TC_MODULATE:
    case SVGA3D_TC_MODULATE2X:
    case SVGA3D_TC_MODULATE4X:
        return first_ == SVGA3D_TA_TEXTURE || second_ == SVGA3D_TA_TEXTURE;
    default:
        return false;
    }
}

void draw_check::draw(bytes body)
{
    svga3d_draw_primitives command{};
    if (!take(body, command))
        return;
    bool has_position = false;
    svga3d_vertex_declaration one{};
    for (uint32_t i = 0; i < command.declarations && take(body, one); ++i)
        has_position =
            has_position || one.usage == SVGA3D_DECLUSAGE_POSITION || one.usage == SVGA3D_DECLUSAGE_POSITIONT;

    ask_for_place();
    if (!has_position)
        say(lack::position, "has vertices without a position: SVGA3D_DECLUSAGE_POSITION");
    if (takes_missing_texture())
        say(lack::texture, "takes a texture in stage 0, none is bound, and it is black: SVGA3D_TS_BIND_TEXTURE, "
                           "or SVGA3D_TS_COLOROP = SVGA3D_TC_SELECTARG2 for the vertices' colours");
    const bool has_depth = (targets_ & 1u << SVGA3D_RT_DEPTH) != 0;
    if (tests_depth_ && !has_depth)
        say(lack::depth_target, "tests depth without a depth target, and the test is left out: SVGA3D_RT_DEPTH");
    if (tests_depth_ && has_depth && !cleared_depth_)
        say(lack::depth_clear, "tests depth that was never cleared: SVGA3D_CLEAR_DEPTH, to 1");
}

void draw_check::say(lack what, const char* text)
{
    const uint32_t bit = 1u << static_cast<uint32_t>(what);
    if ((said_ & bit) == 0)
        static_cast<void>(std::fprintf(stderr, "libkalix: context %u: a draw or clear %s\n", cid_, text));
    said_ |= bit;
}

} // namespace kalix::client_library

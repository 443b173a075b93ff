// The initial values of a context, and its setters, which know the bounds of indices and nothing else: values that the
// interface does not have are kept, and get their default where they are used.

#include "device/state/context.h"

#include "device/state/limits.h"

#include <bit>

namespace kalix::device {
namespace {

constexpr uint32_t all_ones = 0xFFFFFFFF;
constexpr matrix identity{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

// Floats are kept as the words that commands bring.
constexpr uint32_t bits(float value)
{
    return std::bit_cast<uint32_t>(value);
}

// Every render state that does not begin as 0.
constexpr svga3d_render_state_value initial_render_states[] = {
    {SVGA3D_RS_ZWRITEENABLE, 1},
    {SVGA3D_RS_STENCILMASK, all_ones},
    {SVGA3D_RS_STENCILWRITEMASK, all_ones},
    {SVGA3D_RS_MULTISAMPLEMASK, all_ones},
    {SVGA3D_RS_POINTSIZE, bits(1)},
    {SVGA3D_RS_POINTSIZEMAX, bits(limits::point_size)},
    {SVGA3D_RS_POINTSCALE_A, bits(1)},
    {SVGA3D_RS_LINEWIDTH, bits(1)},
    {SVGA3D_RS_FILLMODE, SVGA3D_FILLMODE_FILL},
    {SVGA3D_RS_SHADEMODE, SVGA3D_SHADEMODE_SMOOTH},
    {SVGA3D_RS_SRCBLEND, SVGA3D_BLENDOP_ONE},
    {SVGA3D_RS_DSTBLEND, SVGA3D_BLENDOP_ZERO},
    {SVGA3D_RS_BLENDEQUATION, SVGA3D_BLENDEQ_ADD},
    {SVGA3D_RS_SRCBLENDALPHA, SVGA3D_BLENDOP_ONE},
    {SVGA3D_RS_DSTBLENDALPHA, SVGA3D_BLENDOP_ZERO},
    {SVGA3D_RS_BLENDEQUATIONALPHA, SVGA3D_BLENDEQ_ADD},
    {SVGA3D_RS_CULLMODE, SVGA3D_FACE_NONE},
    {SVGA3D_RS_ZFUNC, SVGA3D_CMP_LESSEQUAL},
    {SVGA3D_RS_ALPHAFUNC, SVGA3D_CMP_ALWAYS},
    {SVGA3D_RS_STENCILFUNC, SVGA3D_CMP_ALWAYS},
    {SVGA3D_RS_STENCILFAIL, SVGA3D_STENCILOP_KEEP},
    {SVGA3D_RS_STENCILZFAIL, SVGA3D_STENCILOP_KEEP},
    {SVGA3D_RS_STENCILPASS, SVGA3D_STENCILOP_KEEP},
    {SVGA3D_RS_CCWSTENCILFUNC, SVGA3D_CMP_ALWAYS},
    {SVGA3D_RS_CCWSTENCILFAIL, SVGA3D_STENCILOP_KEEP},
    {SVGA3D_RS_CCWSTENCILZFAIL, SVGA3D_STENCILOP_KEEP},
    {SVGA3D_RS_CCWSTENCILPASS, SVGA3D_STENCILOP_KEEP},
    {SVGA3D_RS_FRONTWINDING, SVGA3D_FRONTWINDING_CW},
    {SVGA3D_RS_LASTPIXEL, 1},
    {SVGA3D_RS_CLIPPING, 1},
    {SVGA3D_RS_COLORWRITEENABLE, 15},
    {SVGA3D_RS_COLORWRITEENABLE1, 15},
    {SVGA3D_RS_COLORWRITEENABLE2, 15},
    {SVGA3D_RS_COLORWRITEENABLE3, 15},
};

// The texture states that do not begin as 0, alike on all stages but for those set below.
constexpr std::pair<uint32_t, uint32_t> initial_texture_states[] = {
    {SVGA3D_TS_BIND_TEXTURE, SVGA3D_INVALID_ID},      {SVGA3D_TS_COLOROP, SVGA3D_TC_DISABLE},
    {SVGA3D_TS_COLORARG1, SVGA3D_TA_TEXTURE},         {SVGA3D_TS_COLORARG2, SVGA3D_TA_PREVIOUS},
    {SVGA3D_TS_ALPHAOP, SVGA3D_TC_DISABLE},           {SVGA3D_TS_ALPHAARG1, SVGA3D_TA_TEXTURE},
    {SVGA3D_TS_ALPHAARG2, SVGA3D_TA_PREVIOUS},        {SVGA3D_TS_ADDRESSU, SVGA3D_TEX_ADDRESS_WRAP},
    {SVGA3D_TS_ADDRESSV, SVGA3D_TEX_ADDRESS_WRAP},    {SVGA3D_TS_ADDRESSW, SVGA3D_TEX_ADDRESS_WRAP},
    {SVGA3D_TS_MAGFILTER, SVGA3D_TEX_FILTER_NEAREST}, {SVGA3D_TS_MINFILTER, SVGA3D_TEX_FILTER_NEAREST},
    {SVGA3D_TS_TEXTURE_ANISOTROPIC_LEVEL, 1},
};

constexpr svga3d_image no_image{SVGA3D_INVALID_ID, 0, 0};

} // namespace

context new_context(uint32_t cid)
{
    context made;
    made.cid = cid;
    for (const auto& [state, value] : initial_render_states)
        made.render_states[state] = value;
    for (uint32_t stage = 0; stage < SVGA3D_TEXTURE_STAGES; ++stage) {
        auto& states = made.texture_states[stage];
        for (const auto& [name, value] : initial_texture_states)
            states[name] = value;
        states[SVGA3D_TS_TEXCOORDINDEX] = stage;
    }
    // Stage 0 is on from the start: the texture times the vertex colour, and the texture's alpha.
    made.texture_states[0][SVGA3D_TS_COLOROP] = SVGA3D_TC_MODULATE;
    made.texture_states[0][SVGA3D_TS_ALPHAOP] = SVGA3D_TC_SELECTARG1;
    made.transforms.fill(identity);
    made.targets.fill(no_image);
    made.bound_shaders.fill(SVGA3D_INVALID_ID);
    return made;
}

bool set_render_state(context& to, const svga3d_render_state_value& value)
{
    if (value.state == 0 || value.state >= SVGA3D_RS_MAX)
        return false;
    to.render_states[value.state] = value.value;
    return true;
}

bool set_texture_state(context& to, const svga3d_texture_state_value& value)
{
    if (value.stage >= SVGA3D_TEXTURE_STAGES || value.name == 0 || value.name >= SVGA3D_TS_MAX)
        return false;
    to.texture_states[value.stage][value.name] = value.value;
    return true;
}

bool set_transform(context& to, const svga3d_set_transform& value)
{
    if (value.type == 0 || value.type >= SVGA3D_TRANSFORM_MAX)
        return false;
    to.transforms[value.type] = std::to_array(value.matrix);
    return true;
}

bool set_render_target(context& to, const svga3d_set_render_target& value)
{
    if (value.type >= SVGA3D_RT_MAX)
        return false;
    to.targets[value.type] = value.target;
    return true;
}

bool set_material(context& to, const svga3d_set_material& value)
{
    if (value.face < SVGA3D_FACE_FRONT || value.face > SVGA3D_FACE_FRONT_BACK)
        return false;
    // The back's is kept although nothing is lit by it: the front material lights both sides.
    if (value.face != SVGA3D_FACE_BACK)
        to.materials[0] = value.material;
    if (value.face != SVGA3D_FACE_FRONT)
        to.materials[1] = value.material;
    return true;
}

bool set_light_data(context& to, const svga3d_set_light_data& value)
{
    if (value.index >= SVGA3D_LIGHTS)
        return false;
    to.lights[value.index] = value.light;
    return true;
}

bool set_light_enabled(context& to, const svga3d_set_light_enabled& value)
{
    if (value.index >= SVGA3D_LIGHTS)
        return false;
    to.light_enabled[value.index] = value.enabled != 0;
    return true;
}

bool set_clip_plane(context& to, const svga3d_set_clip_plane& value)
{
    if (value.index >= SVGA3D_CLIP_PLANES)
        return false;
    to.clip_planes[value.index] = std::to_array(value.plane);
    return true;
}

void unbind_surface(context& in, uint32_t sid)
{
    for (svga3d_image& target : in.targets)
        if (target.sid == sid)
            target = no_image;
    for (auto& states : in.texture_states)
        if (states[SVGA3D_TS_BIND_TEXTURE] == sid)
            states[SVGA3D_TS_BIND_TEXTURE] = SVGA3D_INVALID_ID;
}

} // namespace kalix::device

#include "driver/screen/postprocess.h"

#include "base/saturate.h"
#include "driver/screen/matrix.h"
#include "driver/screen/quad.h"
#include "driver/screen/zoom.h"
#include "svga/svga3d.h"

#include <algorithm>
#include <span>

namespace kalix {
namespace {

constexpr uint32_t vertex_surface_bytes = drawable_slots * slot_vertex_bytes;
constexpr uint32_t index_surface_bytes = drawable_slots * slot_index_bytes;
constexpr float quarter_turn = 1.5707964f; // radians, the nearest in single precision
constexpr uint32_t white = 0xFFFFFFFF;

uint32_t blend_state;         // of the last render-state set-up; selects the texture stage's
drawable_object* lcd;         // the client's picture
drawable_object* glb_overlay; // shared by all overlays: with more than one of them each frame uploads it anew
postprocess_cost last_cost;

surface_dimensions screen()
{
    return {_globals.svga_device->width, _globals.svga_device->height};
}

int make_surface(postprocess_surface place, uint32_t sid, surface_dimensions size, uint32_t format, uint32_t flags)
    KALIX_REQUIRES(_globals.device_mutex)
{
    surface_record*& slot = _globals.postprocess_surfaces[place];
    if (!slot)
        slot = surface_create_local(sid, size.width, size.height, format, flags);
    return slot ? 0 : status_no_memory;
}

// No surface of the pass need be larger than the largest mode.
surface_dimensions cut_to_largest_mode(surface_dimensions size)
{
    return {std::min(size.width, SVGA_ReadReg(SVGA_REG_MAX_WIDTH)),
            std::min(size.height, SVGA_ReadReg(SVGA_REG_MAX_HEIGHT))};
}

// What an earlier, failed attempt made is kept and used: ids and slots are fixed, and there are no others to take.
int postprocess_init(const surface_record& surface) KALIX_REQUIRES(_globals.device_mutex)
{
    const surface_dimensions size = cut_to_largest_mode(dimensions_of(surface));
    if (SVGA3D_DefineContext(driver_context_id) != 0 ||
        make_surface(POSTPROCESS_TARGET, postprocess_target_sid, size, SVGA3D_X8R8G8B8, SVGA3D_SURFACE_HINT_TEXTURE) !=
            0 ||
        make_surface(POSTPROCESS_DEPTH, postprocess_depth_sid, size, SVGA3D_Z_D16, 0) != 0 ||
        make_surface(POSTPROCESS_VERTICES, postprocess_vertex_sid, {vertex_surface_bytes, 1}, SVGA3D_BUFFER,
                     SVGA3D_SURFACE_HINT_VERTEXBUFFER) != 0 ||
        make_surface(POSTPROCESS_INDICES, postprocess_index_sid, {index_surface_bytes, 1}, SVGA3D_BUFFER,
                     SVGA3D_SURFACE_HINT_INDEXBUFFER) != 0)
        return status_no_memory;
    for (drawable_object** object : {&lcd, &glb_overlay}) {
        if (!*object)
            *object = create_drawable_object();
        if (!*object)
            return status_no_memory;
    }
    _globals.postprocess_ready = 1;
    return 0;
}

// Defines a surface anew when the screen does not fit it, so that it holds both what it held and the screen. The sid
// stays: commands that name it come behind the new definition in the FIFO.
int grow(surface_record& surface)
{
    surface_size& size = surface.sizes[0];
    const auto [width, height] = screen();
    if (size.width >= width && size.height >= height)
        return 0;
    if (surface_destroy_on_hw(&surface) != 0)
        return status_no_memory;
    const surface_size before = size;
    size = {std::max(before.width, width), std::max(before.height, height), 1, 0};
    if (surface_init(&surface) == 0)
        return 0;
    size = {0, 0, 1, 0}; // the device has none: the next pass tries again
    return status_no_memory;
}

int grow_targets() KALIX_REQUIRES(_globals.device_mutex)
{
    const int target = grow(*_globals.postprocess_surfaces[POSTPROCESS_TARGET]);
    return target != 0 ? target : grow(*_globals.postprocess_surfaces[POSTPROCESS_DEPTH]);
}

// All that the pass relies on, for every draw: nothing is taken for still set, and depth never decides, since quads lie
// on one another in the order in which they are drawn.
int setup_renderstate(uint32_t blend)
{
    const svga3d_render_state_value states[] = {
        {SVGA3D_RS_ZENABLE, 0},
        {SVGA3D_RS_ZWRITEENABLE, 0},
        {SVGA3D_RS_CULLMODE, SVGA3D_FACE_NONE},
        {SVGA3D_RS_LIGHTINGENABLE, 0},
        {SVGA3D_RS_BLENDENABLE, blend ? 1u : 0u},
        {SVGA3D_RS_SRCBLEND, SVGA3D_BLENDOP_SRCALPHA}, // from here on with blending alone
        {SVGA3D_RS_DSTBLEND, SVGA3D_BLENDOP_INVSRCALPHA},
        {SVGA3D_RS_BLENDEQUATION, SVGA3D_BLENDEQ_ADD},
    };
    const std::span used{states, blend ? 8u : 5u};
    blend_state = blend;
    svga3d_render_state_value* out = nullptr;
    if (SVGA3D_BeginSetRenderState(driver_context_id, &out, static_cast<uint32_t>(used.size())) != 0)
        return status_no_memory;
    std::ranges::copy(used, out);
    SVGA_FIFOCommitAll();
    return 0;
}

// With blending the texture shows with its own alpha, without it modulated by the vertex colour.
int setup_texture(uint32_t sid)
{
    // Unzoomed, pixel (x, y) is texel (x, y); whatever is scaled is filtered.
    const uint32_t filter = _globals.svga_device->zoom == 1.0f ? SVGA3D_TEX_FILTER_NEAREST : SVGA3D_TEX_FILTER_LINEAR;
    const svga3d_texture_state_value blended[] = {
        {0, SVGA3D_TS_BIND_TEXTURE, sid},
        {0, SVGA3D_TS_COLOROP, SVGA3D_TC_SELECTARG1},
        {0, SVGA3D_TS_COLORARG1, SVGA3D_TA_TEXTURE},
        {0, SVGA3D_TS_ALPHAOP, SVGA3D_TC_SELECTARG1},
        {0, SVGA3D_TS_ALPHAARG1, SVGA3D_TA_TEXTURE},
        {0, SVGA3D_TS_MINFILTER, filter},
        {0, SVGA3D_TS_MAGFILTER, filter},
        {0, SVGA3D_TS_ADDRESSU, SVGA3D_TEX_ADDRESS_CLAMP},
        {0, SVGA3D_TS_ADDRESSV, SVGA3D_TEX_ADDRESS_CLAMP},
    };
    const svga3d_texture_state_value opaque[] = {
        {0, SVGA3D_TS_BIND_TEXTURE, sid},
        {0, SVGA3D_TS_COLOROP, SVGA3D_TC_MODULATE},
        {0, SVGA3D_TS_COLORARG1, SVGA3D_TA_TEXTURE},
        {0, SVGA3D_TS_COLORARG2, SVGA3D_TA_DIFFUSE},
        {0, SVGA3D_TS_ALPHAOP, SVGA3D_TC_SELECTARG1},
        {0, SVGA3D_TS_ALPHAARG1, SVGA3D_TA_DIFFUSE},
        {0, SVGA3D_TS_MINFILTER, filter},
        {0, SVGA3D_TS_MAGFILTER, filter},
        {0, SVGA3D_TS_ADDRESSU, SVGA3D_TEX_ADDRESS_CLAMP},
        {0, SVGA3D_TS_ADDRESSV, SVGA3D_TEX_ADDRESS_CLAMP},
    };
    const std::span<const svga3d_texture_state_value> states =
        blend_state ? std::span<const svga3d_texture_state_value>{blended} : opaque;
    svga3d_texture_state_value* out = nullptr;
    if (SVGA3D_BeginSetTextureState(driver_context_id, &out, static_cast<uint32_t>(states.size())) != 0)
        return status_no_memory;
    std::ranges::copy(states, out);
    SVGA_FIFOCommitAll();
    return 0;
}

// Pixels with y down are what the quads are given in; an angle, in radians, turns about the screen's top
// left corner and moves the result back onto the screen.
int setup_matrix(surface_dimensions size, float angle)
{
    const auto width = static_cast<float>(size.width);
    const auto height = static_cast<float>(size.height);
    float view[16];
    float projection[16];
    Matrix_Copy(view, gIdentityMatrix);
    if (angle != 0)
        Matrix_RotateZ(view, angle);
    Matrix_Translate(view, angle != 0 ? width : 0, 0, -0.5f); // in depth anywhere between the planes does
    Matrix_Ortho(projection, 0, width, height, 0, -10, 10);
    const bool sent = SVGA3D_SetTransform(driver_context_id, SVGA3D_TRANSFORM_VIEW, view) == 0 &&
                      SVGA3D_SetTransform(driver_context_id, SVGA3D_TRANSFORM_WORLD, gIdentityMatrix) == 0 &&
                      SVGA3D_SetTransform(driver_context_id, SVGA3D_TRANSFORM_PROJECTION, projection) == 0;
    return sent ? 0 : status_no_memory;
}

uint32_t get_gray_color(float level)
{
    return truncated_unsigned(255 * std::clamp(level, 0.0f, 1.0f)) * 0x01010101u;
}

// The rectangle's place in the surface is not looked at: what is shown begins at the surface's corner.
int draw_lcd(surface_dimensions viewport, const present_rectangle& rectangle, const surface_record& surface,
             uint32_t color)
{
    if (!lcd)
        return status_invalid;
    const auto [width, height] = dimensions_of(surface);
    const float u_max = static_cast<float>(static_cast<uint32_t>(rectangle.width)) / static_cast<float>(width);
    const float v_max = static_cast<float>(static_cast<uint32_t>(rectangle.height)) / static_cast<float>(height);
    // A pixel short of the screen on two sides: the last column and row stay black, as clients know the picture.
    const int status = update_buffers(lcd, {0, 0, viewport.width - 1, viewport.height - 1, u_max, v_max, color});
    return status != 0 ? status : draw_rect(lcd);
}

int draw_overlay(surface_dimensions size, int32_t x, int32_t y)
{
    if (!glb_overlay)
        return status_invalid;
    const int status =
        update_buffers(glb_overlay, {x, y, zoomed_unsigned(size.width), zoomed_unsigned(size.height), 1, 1, white});
    return status != 0 ? status : draw_rect(glb_overlay);
}

// The surface's own size counts, not the overlay's, which is for the software pass.
int show_overlay(const overlay_record& overlay)
{
    const surface_record* const surface = overlay.surface[shown_buffer(overlay)];
    if (!overlay.visible || !surface)
        return 0;
    const surface_dimensions size = dimensions_of(*surface);
    if (size.width == 0)
        return 0;
    int status = setup_matrix(screen(), postprocess_turns(*surface) ? quarter_turn : 0);
    if (status == 0)
        status = setup_renderstate(1);
    if (status == 0)
        status = setup_texture(surface->id);
    if (status == 0)
        status = draw_overlay(size, zoomed(overlay.x), zoomed(overlay.y));
    return status;
}

int show_overlays() KALIX_REQUIRES(_globals.device_mutex)
{
    int status = 0;
    for_each_overlay([&status](const overlay_record& overlay) {
        if (status == 0)
            status = show_overlay(overlay);
    });
    return status;
}

// To transparent black; the depth is cleared with it though no draw asks for it.
int clear_target(surface_dimensions size)
{
    svga3d_rect* rect = nullptr;
    if (SVGA3D_BeginClear(driver_context_id, SVGA3D_CLEAR_COLOR | SVGA3D_CLEAR_DEPTH, 0, 1, 0, &rect, 1) != 0)
        return status_no_memory;
    *rect = {0, 0, size.width, size.height};
    SVGA_FIFOCommitAll();
    return 0;
}

// Every pass anew: the context outlives a target that was defined again.
int setup_target(surface_dimensions size)
{
    const svga3d_image target{postprocess_target_sid, 0, 0};
    const svga3d_image depth{postprocess_depth_sid, 0, 0};
    const svga3d_rect viewport{0, 0, size.width, size.height};
    svga3d_material material{};
    material.diffuse = {1, 1, 1, 1};
    const bool sent = SVGA3D_SetRenderTarget(driver_context_id, SVGA3D_RT_COLOR0, &target) == 0 &&
                      SVGA3D_SetRenderTarget(driver_context_id, SVGA3D_RT_DEPTH, &depth) == 0 &&
                      SVGA3D_SetViewport(driver_context_id, &viewport) == 0 &&
                      SVGA3D_SetZRange(driver_context_id, -10, 10) == 0 &&
                      SVGA3D_SetMaterial(driver_context_id, SVGA3D_FACE_FRONT_BACK, &material) == 0;
    return sent ? 0 : status_no_memory;
}

// The pass, step by step; the first step that finds no FIFO space ends it. The render state comes before the texture,
// whose stage is set up by whether the state blends.
int compose(const surface_record& surface, const present_rectangle& rectangle)
{
    const surface_dimensions size = screen();
    int status = setup_target(size);
    const auto then = [&status](auto step) {
        if (status == 0)
            status = step();
    };
    then([] { return setup_renderstate(0); });
    then([&] { return clear_target(size); });
    then([&] { return setup_matrix(size, 0); });
    then([&] { return setup_texture(surface.id); });
    then([&] { return draw_lcd(size, rectangle, surface, get_gray_color(1)); });
    then(show_overlays);
    // The last two leave the context unturned and opaque; no picture depends on that, since each pass begins with both.
    then([&] { return setup_matrix(size, 0); });
    then([] { return setup_renderstate(0); });
    return status;
}

} // namespace

int postprocess_present(const surface_record* surface, const present_rectangle& rectangle)
{
    begin_uploads();
    last_cost = {};
    if (!surface)
        return status_invalid;
    if (!_globals.postprocess_ready && postprocess_init(*surface) != 0)
        return status_no_memory;
    // The screen may have grown since the last pass, by a mode or a zoom.
    if (grow_targets() != 0)
        return status_no_memory;
    const int status = compose(*surface, rectangle);
    last_cost = {uploaded_bytes(), uploaded_bytes() != 0};
    if (last_cost.waited)
        SVGA_SyncToFence(SVGA_InsertFence()); // the staging area is used again by the next pass
    return status;
}

postprocess_cost postprocess_last_cost()
{
    return last_cost;
}

bool postprocess_turns(const surface_record& surface)
{
    return dimensions_of(surface).width == _globals.svga_device->mode_height;
}

void postprocess_reset()
{
    delete lcd;
    delete glb_overlay;
    lcd = glb_overlay = nullptr;
    last_cost = {};
    reset_drawable_slots();
}

} // namespace kalix

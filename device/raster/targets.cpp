// From a context's bindings to images, and the rectangle that all of them, the viewport and the scissor share.

#include "device/raster/targets.h"

#include "device/state/limits.h"

#include <algorithm>

namespace kalix::device::raster {
namespace {

depth_target depth_target_of(const svga3d_image& name, surface_store& surfaces, bool needs_stencil)
{
    const image_view view = surfaces.view(name);
    const depth_layout layout = depth_layout_of(view ? view.format_number : uint32_t{SVGA3D_FORMAT_INVALID});
    // A depth target may have no stencil; a stencil target without one is none.
    const bool fits = layout.bytes != 0 && (!needs_stencil || layout.stencil_bits != 0);
    return fits ? depth_target{view, layout} : depth_target{};
}

void cut_to(pixel_rect& area, const image_view& view)
{
    if (view)
        area = intersection(area, {0, 0, view.width, view.height});
}

} // namespace

pixel_rect intersection(const pixel_rect& a, const pixel_rect& b)
{
    return {std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right), std::min(a.bottom, b.bottom)};
}

pixel_rect pixels_of(const svga3d_rect& rect)
{
    return {rect.x, rect.y, int64_t{rect.x} + rect.w, int64_t{rect.y} + rect.h};
}

targets targets_of(const context& of, surface_store& surfaces)
{
    targets found;
    found.color = surfaces.view(of.targets[SVGA3D_RT_COLOR0]);
    // A surface that is there and cannot be drawn to is no target, as one that is not there.
    if (found.color && !found.color.format->target)
        found.color = {};
    found.depth = depth_target_of(of.targets[SVGA3D_RT_DEPTH], surfaces, false);
    found.stencil = depth_target_of(of.targets[SVGA3D_RT_STENCIL], surfaces, true);
    // The extent bounds what rows and columns anything here can meet, however large a target is.
    found.area = intersection({0, 0, limits::extent, limits::extent}, pixels_of(of.viewport));
    if (of.render_states[SVGA3D_RS_SCISSORTESTENABLE])
        found.area = intersection(found.area, pixels_of(of.scissor));
    cut_to(found.area, found.color);
    cut_to(found.area, found.depth.view);
    cut_to(found.area, found.stencil.view);
    return found;
}

} // namespace kalix::device::raster

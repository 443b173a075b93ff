#include "hardware/gpu/vmware_svga/lib/device/raster/transform.h"

#include "hardware/gpu/vmware_svga/lib/device/raster/limits.h"
#include "hardware/gpu/vmware_svga/lib/device/raster/numeric.h"

#include <algorithm>
#include <cmath>

namespace kalix::device::raster {
namespace {

constexpr uint32_t component_flags = 0xF;
constexpr double subpixels = 256; // window coordinates have steps of 1/256 pixel

matrix64 widened(const matrix& from)
{
    matrix64 to;
    std::ranges::transform(from, to.begin(), [](float element) { return static_cast<double>(element); });
    return to;
}

// A row vector times a matrix.
attribute_value times(const attribute_value& v, const matrix64& m)
{
    attribute_value result{};
    for (size_t column = 0; column < 4; ++column)
        result[column] = v[0] * m[column] + v[1] * m[4 + column] + v[2] * m[8 + column] + v[3] * m[12 + column];
    return result;
}

double dot(const attribute_value& a, const attribute_value& b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2] + a[3] * b[3];
}

void put(varyings& values, uint32_t at, const attribute_value& value)
{
    std::ranges::copy(value, values.begin() + at);
}

// Fills position and plane distances; returns the view-space depth.
double place(const transform_state& state, const attribute_value& position, vertex& out)
{
    if (state.transformed) {
        out.clip = position;
        return position[2];
    }
    const attribute_value in_world = times(position, state.world);
    const attribute_value in_view = times(in_world, state.view);
    out.clip = times(in_view, state.projection);
    for (size_t i = 0; i < state.planes.size(); ++i)
        out.distances[i] = state.planes_enabled >> i & 1 ? dot(in_world, state.planes[i]) : 0;
    return in_view[2];
}

// The fog value that is interpolated: a factor worked out here, or the depth for the pixels to do it.
double fog_value(const fog_state& fog, double depth, double declared)
{
    if (fog.function == 4)
        return declared;
    return fog.per_pixel ? depth : fog_factor(fog, depth);
}

attribute_value stage_coordinates(const transform_state& state, const vertex_fetch& fetch, uint32_t stage,
                                  uint64_t index)
{
    const uint32_t which = state.coordinate_index[stage];
    const attribute_value given = which < fetch.coordinates.size() ? read_attribute(fetch.coordinates[which], index)
                                                                   : attribute_value{0, 0, 0, 1};
    return state.texture_flags[stage] & component_flags ? times(given, state.texture[stage]) : given;
}

} // namespace

transform_state make_transform(const context& of, bool transformed)
{
    const auto& states = of.render_states;
    const auto real = [&states](uint32_t which) { return static_cast<double>(as_float(states[which])); };
    transform_state made;
    made.world = widened(of.transforms[SVGA3D_TRANSFORM_WORLD]);
    made.view = widened(of.transforms[SVGA3D_TRANSFORM_VIEW]);
    made.projection = widened(of.transforms[SVGA3D_TRANSFORM_PROJECTION]);
    for (uint32_t stage = 0; stage < SVGA3D_TEXTURE_STAGES; ++stage) {
        made.texture[stage] = widened(of.transforms[SVGA3D_TRANSFORM_TEXTURE0 + stage]);
        made.texture_flags[stage] = of.texture_states[stage][SVGA3D_TS_TEXTURETRANSFORMFLAGS];
        made.coordinate_index[stage] = of.texture_states[stage][SVGA3D_TS_TEXCOORDINDEX];
    }
    for (size_t i = 0; i < made.planes.size(); ++i)
        std::ranges::copy(of.clip_planes[i], made.planes[i].begin());
    made.planes_enabled = transformed ? 0 : states[SVGA3D_RS_CLIPPLANEENABLE];
    made.transformed = transformed;
    made.left = of.viewport.x;
    made.top = of.viewport.y;
    made.half_width = of.viewport.w / 2.0;
    made.half_height = of.viewport.h / 2.0;
    made.z_min = static_cast<double>(of.z_min);
    made.z_max = static_cast<double>(of.z_max);
    made.point_size = real(SVGA3D_RS_POINTSIZE);
    made.point_size_min = real(SVGA3D_RS_POINTSIZEMIN);
    made.point_size_max = std::min(real(SVGA3D_RS_POINTSIZEMAX), static_cast<double>(limits::point_size));
    made.depth_bias = real(SVGA3D_RS_DEPTHBIAS) + real(SVGA3D_RS_ZBIAS);
    return made;
}

vertex transformed_vertex(const transform_state& state, const vertex_fetch& fetch, const draw_setup& setup,
                          uint64_t index)
{
    vertex out;
    const double depth = place(state, read_attribute(fetch.position, index), out);
    put(out.values, varying_diffuse, read_attribute(fetch.diffuse, index));
    put(out.values, varying_specular, read_attribute(fetch.specular, index));
    if (setup.fog.enabled)
        out.values[varying_fog] = fog_value(setup.fog, depth, read_attribute(fetch.fog, index)[0]);
    for (uint32_t stage = 0; stage < setup.chain.count; ++stage)
        put(out.values, varying_coordinates + 4 * stage, stage_coordinates(state, fetch, stage, index));
    const double size = fetch.point_size.start ? read_attribute(fetch.point_size, index)[0] : state.point_size;
    out.point_size =
        clamped(clamped(size, state.point_size_min, state.point_size_max), 0, static_cast<double>(limits::point_size));
    return out;
}

std::optional<window_vertex> to_window(const transform_state& state, const vertex& from)
{
    const auto& [x, y, z, w] = from.clip;
    double window_x = x;
    double window_y = y;
    double depth = z;
    double inverse_w = w;
    if (!state.transformed) {
        inverse_w = 1 / w;
        window_x = state.left + (x * inverse_w + 1) * state.half_width;
        window_y = state.top + (1 - y * inverse_w) * state.half_height;
        depth = state.z_min + z * inverse_w * (state.z_max - state.z_min);
    }
    constexpr double reach = limits::extent;
    const bool drawable = std::abs(window_x) < reach && std::abs(window_y) < reach && std::isfinite(inverse_w);
    if (!drawable)
        return std::nullopt;
    constexpr int64_t limit = int64_t{limits::extent} * static_cast<int64_t>(subpixels);
    return window_vertex{to_integer(window_x * subpixels, limit), to_integer(window_y * subpixels, limit),
                         clamp01(depth), inverse_w, &from.values};
}

} // namespace kalix::device::raster

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

double distance_from(const std::array<double, 4>& plane, const attribute_value& point)
{
    return plane[0] * point[0] + plane[1] * point[1] + plane[2] * point[2] + plane[3] * point[3];
}

matrix64 product(const matrix64& a, const matrix64& b)
{
    matrix64 out{};
    for (size_t row = 0; row < 16; row += 4)
        for (size_t column = 0; column < 4; ++column)
            for (size_t i = 0; i < 4; ++i)
                out[row + column] += a[row + i] * b[4 * i + column];
    return out;
}

// The inverse transpose of the upper left 3 x 3 part, row by row; zeros when it has no inverse.
std::array<double, 9> normal_matrix(const matrix64& m)
{
    const auto at = [&m](size_t row, size_t column) { return m[4 * (row % 3) + column % 3]; };
    std::array<double, 9> cofactors{};
    for (size_t row = 0; row < 3; ++row)
        for (size_t column = 0; column < 3; ++column)
            cofactors[3 * row + column] =
                at(row + 1, column + 1) * at(row + 2, column + 2) - at(row + 1, column + 2) * at(row + 2, column + 1);
    const double determinant = m[0] * cofactors[0] + m[1] * cofactors[1] + m[2] * cofactors[2];
    for (double& each : cofactors)
        each = determinant != 0 ? each / determinant : 0;
    return cofactors;
}

void put(varyings& values, uint32_t at, const attribute_value& value)
{
    std::ranges::copy(value, values.begin() + at);
}

// Fills position and plane distances; returns the position in view space (of a transformed one: itself).
attribute_value place(const transform_state& state, const attribute_value& position, vertex& out)
{
    if (state.transformed) {
        out.clip = position;
        return position;
    }
    const attribute_value in_world = times(position, state.world);
    const attribute_value in_view = times(in_world, state.view);
    out.clip = times(in_view, state.projection);
    for (size_t i = 0; i < state.planes.size(); ++i)
        out.distances[i] = state.planes_enabled >> i & 1 ? distance_from(state.planes[i], in_world) : 0;
    return in_view;
}

// A vertex's normal in view space.
vector3 normal_in_view(const transform_state& state, const attribute_value& given)
{
    const auto& m = state.normals;
    const vector3 out = {given[0] * m[0] + given[1] * m[3] + given[2] * m[6],
                         given[0] * m[1] + given[1] * m[4] + given[2] * m[7],
                         given[0] * m[2] + given[1] * m[5] + given[2] * m[8]};
    return state.normalizes ? unit(out) : out;
}

// The fog value that is interpolated: a factor worked out here, or the depth for the pixels to do it.
double fog_value(const fog_state& fog, double depth, double declared)
{
    if (fog.function == 4)
        return declared;
    return fog.per_pixel ? depth : fog_factor(fog, depth);
}

// Where a vertex is and looks, in view space.
struct placed {
    vector3 position, normal;
};

// The direction from the eye, mirrored by the surface.
vector3 reflection(const placed& at)
{
    const vector3 eye = unit(at.position);
    const double twice = 2 * dot(eye, at.normal);
    return {eye[0] - twice * at.normal[0], eye[1] - twice * at.normal[1], eye[2] - twice * at.normal[2]};
}

// What a stage's coordinates are before its matrix: declared, or worked out from where the vertex is.
attribute_value given_coordinates(const transform_state& state, const vertex_fetch& fetch, uint32_t stage,
                                  uint64_t index, const placed& at)
{
    const auto point = [](const vector3& v) { return attribute_value{v[0], v[1], v[2], 1}; };
    switch (state.coordinate_generation[stage]) {
    case 1:
        return point(at.position);
    case 2:
        return point(at.normal);
    case 3:
        return point(reflection(at));
    default:
        break;
    }
    const uint32_t which = state.coordinate_index[stage];
    return which < fetch.coordinates.size() ? read_attribute(fetch.coordinates[which], index)
                                            : attribute_value{0, 0, 0, 1};
}

attribute_value stage_coordinates(const transform_state& state, const vertex_fetch& fetch, uint32_t stage,
                                  uint64_t index, const placed& at)
{
    const attribute_value given = given_coordinates(state, fetch, stage, index, at);
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
        made.coordinate_generation[stage] = of.texture_states[stage][SVGA3D_TS_TEXCOORDGEN];
        made.needs_normals = made.needs_normals || made.coordinate_generation[stage] > 1;
    }
    made.lighting = make_lighting(of, made.view);
    made.lighting.enabled = made.lighting.enabled && !transformed;
    made.needs_normals = made.needs_normals || made.lighting.enabled;
    made.normals = normal_matrix(product(made.world, made.view));
    made.normalizes = states[SVGA3D_RS_NORMALIZENORMALS] != 0;
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
    made.scales_points = states[SVGA3D_RS_POINTSCALEENABLE] && !transformed;
    made.point_scale = {real(SVGA3D_RS_POINTSCALE_A), real(SVGA3D_RS_POINTSCALE_B), real(SVGA3D_RS_POINTSCALE_C)};
    made.depth_bias = real(SVGA3D_RS_DEPTHBIAS) + real(SVGA3D_RS_ZBIAS);
    return made;
}

namespace {

// The vertex's colours, lit or as they are declared.
void put_colors(const transform_state& state, const vertex_fetch& fetch, uint64_t index, const placed& at, vertex& out)
{
    lit_vertex colors{
        at.position, at.normal, {read_attribute(fetch.diffuse, index)}, {read_attribute(fetch.specular, index)}};
    if (state.lighting.enabled)
        light(state.lighting, colors);
    put(out.values, varying_diffuse, colors.diffuse.channel);
    put(out.values, varying_specular, colors.specular.channel);
}

// A point's size in pixels: the vertex's or the context's, smaller with the distance when that is asked for.
double point_size(const transform_state& state, const vertex_fetch& fetch, uint64_t index, const placed& at)
{
    double size = fetch.point_size.start ? read_attribute(fetch.point_size, index)[0] : state.point_size;
    if (state.scales_points) {
        const double distance = std::sqrt(dot(at.position, at.position));
        const auto& scale = state.point_scale;
        const double divisor = scale[0] + scale[1] * distance + scale[2] * distance * distance;
        size *= 2 * state.half_height * std::sqrt(divisor > 0 ? 1 / divisor : 0);
    }
    return clamped(clamped(size, state.point_size_min, state.point_size_max), 0,
                   static_cast<double>(limits::point_size));
}

} // namespace

vertex transformed_vertex(const transform_state& state, const vertex_fetch& fetch, const draw_setup& setup,
                          uint64_t index)
{
    vertex out;
    const attribute_value in_view = place(state, read_attribute(fetch.position, index), out);
    placed at{{in_view[0], in_view[1], in_view[2]}, {}};
    if (state.needs_normals)
        at.normal = normal_in_view(state, read_attribute(fetch.normal, index));
    put_colors(state, fetch, index, at, out);
    if (setup.fog.enabled)
        out.values[varying_fog] = fog_value(setup.fog, in_view[2], read_attribute(fetch.fog, index)[0]);
    for (uint32_t stage = 0; stage < setup.chain.count; ++stage)
        put(out.values, varying_coordinates + 4 * stage, stage_coordinates(state, fetch, stage, index, at));
    out.point_size = point_size(state, fetch, index, at);
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
                         clamp01(depth), inverse_w, nullptr};
}

} // namespace kalix::device::raster

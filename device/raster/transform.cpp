// What becomes of a vertex, step by step: its place in clip space, fog, colours and coordinates, and its place in the
// window.

#include "device/raster/transform.h"

#include "device/raster/numeric.h"
#include "device/state/limits.h"

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

double distance_from(const std::array<double, 4>& plane, const four& point)
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
    // Rows and columns that go round give each cofactor its sign.
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

// Fills position and plane distances; returns the position in view space (of a transformed one: itself).
four locate_vertex(const transform_state& state, const four& position, vertex& out)
{
    if (state.transformed) {
        store_four(out.clip.data(), position);
        return position;
    }
    const four in_world = times(position, state.world);
    const four in_view = times(in_world, state.view);
    store_four(out.clip.data(), times(in_view, state.projection));
    // In world space, where the user's planes are; interpolated like the values before them.
    for (uint32_t i = 0; state.varying_count + i < state.value_count; ++i)
        out.values[state.varying_count + i] =
            state.planes_enabled >> i & 1 ? distance_from(state.planes[i], in_world) : 0;
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

// What a stage's coordinates are before its matrix.
four given_coordinates(const coordinate_source& source, uint64_t index, const placed& at)
{
    const auto point = [](const vector3& v) { return four_of(v[0], v[1], v[2], 1); };
    switch (source.generation) {
    case 1:
        return point(at.position);
    case 2:
        return point(at.normal);
    case 3:
        return point(reflection(at));
    default:
        return read_attribute(*source.from, index);
    }
}

void store_coordinates(const coordinate_source& source, uint32_t stage, const four& given, vertex& out)
{
    store_four(out.values + varying_coordinates + size_t{4} * stage,
               source.has_matrix ? times(given, source.by) : given);
}

void put_coordinates(const transform_state& state, uint64_t index, const placed& at, vertex& out)
{
    for (uint32_t stage = 0; stage < state.stage_count; ++stage) {
        const coordinate_source& source = state.stages[stage];
        store_coordinates(source, stage, given_coordinates(source, index, at), out);
    }
}

// The vertex's colours, lit or as they are declared.
void put_colors(const transform_state& state, uint64_t index, const placed& at, vertex& out)
{
    lit_vertex colors{at.position, at.normal, read_attribute(state.fetch->diffuse, index),
                      read_attribute(state.fetch->specular, index)};
    if (state.lighting.enabled)
        light(state.lighting, colors);
    store_four(out.values + varying_diffuse, colors.diffuse);
    store_four(out.values + varying_specular, colors.specular);
}

// A point's size in pixels: the vertex's or the context's, smaller with the distance when that is asked for.
double point_size(const transform_state& state, uint64_t index, const placed& at)
{
    const attribute& declared = state.fetch->point_size;
    double size = declared.start ? read_attribute(declared, index)[0] : state.point_size;
    if (state.scales_points) {
        const double distance = std::sqrt(dot(at.position, at.position));
        const auto& scale = state.point_scale;
        const double divisor = scale[0] + scale[1] * distance + scale[2] * distance * distance;
        // Times the viewport's height in pixels: a size under scaling is a part of it.
        size *= 2 * state.half_height * std::sqrt(divisor > 0 ? 1 / divisor : 0);
    }
    // The context's bounds first, and then the device's, which hold whatever the context says.
    return clamped(clamped(size, state.point_size_min, state.point_size_max), 0,
                   static_cast<double>(limits::point_size));
}

// What depends on where the vertex is seen: lit colours, generated coordinates, the size of a point.
void put_seen(const transform_state& state, const four& in_view, uint64_t index, vertex& out)
{
    placed at{{in_view[0], in_view[1], in_view[2]}, {}};
    if (state.needs_normals)
        at.normal = normal_in_view(state, read_attribute(state.fetch->normal, index));
    put_colors(state, index, at, out);
    put_coordinates(state, index, at, out);
    if (state.draws_points)
        out.point_size = point_size(state, index, at);
}

// Values that are as they are declared.
void put_declared(const transform_state& state, uint64_t index, vertex& out)
{
    store_four(out.values + varying_diffuse, read_attribute(state.fetch->diffuse, index));
    store_four(out.values + varying_specular, read_attribute(state.fetch->specular, index));
    for (uint32_t stage = 0; stage < state.stage_count; ++stage)
        store_coordinates(state.stages[stage], stage, read_attribute(*state.stages[stage].from, index), out);
}

void put_fog(const transform_state& state, const four& in_view, uint64_t index, vertex& out)
{
    const fog_state& fog = *state.fog;
    out.values[varying_fog] = 0;
    if (!fog.enabled)
        return;
    if (fog.place != 0)
        std::copy_n(std::array{in_view[0], in_view[1], in_view[2]}.begin(), 3, out.values + fog.place);
    const double depth = fog.by_range ? distance_to(in_view[0], in_view[1], in_view[2]) : in_view[2];
    out.values[varying_fog] = fog_value(fog, depth, read_attribute(state.fetch->fog, index)[0]);
}

// The nearest integer, halves up, of a number that fits.
int64_t nearest(double value)
{
    const double up = value + 0.5;
    const auto whole = static_cast<int64_t>(up); // toward zero
    return whole - (static_cast<double>(whole) > up ? 1 : 0);
}

// A depth as it is, as far as planes through it stay finite: no sum of two floats lies further away. 0 for what is not
// a number. It is not clamped to 0..1 here: pixels are, so that a face which reaches beyond keeps its slope.
double finite_depth(double depth)
{
    constexpr double reach = 0x1p130;
    return depth == depth ? clamped(depth, -reach, reach) : 0;
}

// Whether anything of a draw looks at the specular colour.
bool shows_specular(const draw_setup& setup)
{
    const auto names_it = [](const std::array<uint32_t, 3>& arguments) {
        return std::ranges::find(arguments, uint32_t{SVGA3D_TA_SPECULAR}) != arguments.end();
    };
    return setup.adds_specular ||
           std::any_of(setup.chain.stages.begin(), setup.chain.stages.begin() + setup.chain.count,
                       [&](const combiner_stage& stage) {
                           return names_it(stage.color_arguments) || names_it(stage.alpha_arguments);
                       });
}

const attribute no_coordinates{.otherwise = four_of(0, 0, 0, 1)};

void make_stages(const context& of, const draw_setup& setup, const vertex_fetch& fetch, transform_state& out)
{
    out.stage_count = setup.chain.count;
    for (uint32_t stage = 0; stage < out.stage_count; ++stage) {
        const auto& states = of.texture_states[stage];
        const uint32_t which = states[SVGA3D_TS_TEXCOORDINDEX];
        coordinate_source& source = out.stages[stage];
        source.generation = states[SVGA3D_TS_TEXCOORDGEN];
        source.from = which < fetch.coordinates.size() ? &fetch.coordinates[which] : &no_coordinates;
        source.has_matrix = (states[SVGA3D_TS_TEXTURETRANSFORMFLAGS] & component_flags) != 0;
        if (source.has_matrix)
            source.by = widened(of.transforms[SVGA3D_TRANSFORM_TEXTURE0 + stage]);
        out.needs_normals = out.needs_normals || source.generation > 1;
        out.needs_position = out.needs_position || source.generation != 0;
    }
}

void make_planes(const context& of, const draw_setup& setup, transform_state& out)
{
    constexpr uint32_t all = (1u << SVGA3D_CLIP_PLANES) - 1;
    out.planes_enabled = out.transformed ? 0 : of.render_states[SVGA3D_RS_CLIPPLANEENABLE] & all;
    out.varying_count = setup.varying_count;
    out.value_count = setup.varying_count + (out.planes_enabled != 0 ? SVGA3D_CLIP_PLANES : 0);
    for (size_t i = 0; i < out.planes.size(); ++i)
        std::ranges::copy(of.clip_planes[i], out.planes[i].begin());
}

} // namespace

transform_state made_transform(const context& of, const draw_setup& setup, const vertex_fetch& fetch, bool draws_points)
{
    transform_state out;
    const auto& states = of.render_states;
    const auto real = [&states](uint32_t which) { return static_cast<double>(as_float(states[which])); };
    out.fetch = &fetch;
    out.fog = &setup.fog;
    out.transformed = fetch.transformed;
    out.draws_points = draws_points;
    out.world = widened(of.transforms[SVGA3D_TRANSFORM_WORLD]);
    out.view = widened(of.transforms[SVGA3D_TRANSFORM_VIEW]);
    out.projection = widened(of.transforms[SVGA3D_TRANSFORM_PROJECTION]);
    make_lighting(of, out.view, shows_specular(setup), out.lighting);
    // What is in the window already has no place that light could reach.
    out.lighting.enabled = out.lighting.enabled && !out.transformed;
    out.needs_normals = out.lighting.enabled;
    out.needs_position = out.lighting.enabled;
    make_stages(of, setup, fetch, out);
    make_planes(of, setup, out);
    if (out.needs_normals)
        out.normals = normal_matrix(product(out.world, out.view));
    out.normalizes = states[SVGA3D_RS_NORMALIZENORMALS] != 0;
    out.left = of.viewport.x;
    out.top = of.viewport.y;
    out.half_width = of.viewport.w / 2.0;
    out.half_height = of.viewport.h / 2.0;
    out.z_min = static_cast<double>(of.z_min);
    out.z_range = static_cast<double>(of.z_max) - out.z_min;
    out.point_size = real(SVGA3D_RS_POINTSIZE);
    out.point_size_min = real(SVGA3D_RS_POINTSIZEMIN);
    out.point_size_max = std::min(real(SVGA3D_RS_POINTSIZEMAX), static_cast<double>(limits::point_size));
    out.scales_points = states[SVGA3D_RS_POINTSCALEENABLE] && !out.transformed;
    out.point_scale = {real(SVGA3D_RS_POINTSCALE_A), real(SVGA3D_RS_POINTSCALE_B), real(SVGA3D_RS_POINTSCALE_C)};
    out.depth_bias = real(SVGA3D_RS_DEPTHBIAS) + real(SVGA3D_RS_ZBIAS);
    return out;
}

void transform(const transform_state& state, std::span<const fresh_vertex> some)
{
    // Places of all first, and then the rest of all: the sums of one vertex wait for each other, those of several do
    // not.
    std::array<four, together_max> in_view;
    for (size_t i = 0; i < some.size(); ++i)
        in_view[i] = locate_vertex(state, read_attribute(state.fetch->position, some[i].number), *some[i].at);
    for (size_t i = 0; i < some.size(); ++i) {
        put_fog(state, in_view[i], some[i].number, *some[i].at);
        if (state.needs_position || state.draws_points)
            put_seen(state, in_view[i], some[i].number, *some[i].at);
        else
            put_declared(state, some[i].number, *some[i].at);
    }
}

void place(const transform_state& state, vertex& at)
{
    const auto& [x, y, z, w] = at.clip;
    double window_x = x;
    double window_y = y;
    double depth = z;
    // A transformed position brings 1 / w in its fourth component.
    double inverse_w = w;
    if (!state.transformed) {
        inverse_w = 1 / w;
        window_x = state.left + (x * inverse_w + 1) * state.half_width;
        window_y = state.top + (1 - y * inverse_w) * state.half_height;
        depth = state.z_min + z * inverse_w * state.z_range;
    }
    // Compared so, what is not a number is not drawable.
    constexpr double reach = limits::extent;
    at.drawable = std::abs(window_x) < reach && std::abs(window_y) < reach && std::isfinite(inverse_w);
    if (at.drawable)
        at.window = {nearest(window_x * subpixels), nearest(window_y * subpixels), finite_depth(depth), inverse_w,
                     at.values};
}

} // namespace kalix::device::raster

// The sums of light over a vertex, in the order of the lights: sums of doubles depend on their order.

#include "device/raster/lighting.h"

#include "device/raster/numeric.h"

#include <algorithm>
#include <cmath>

namespace kalix::device::raster {
namespace {

four color_of(const svga3d_color4& c)
{
    return four_of(static_cast<double>(c.r), static_cast<double>(c.g), static_cast<double>(c.b),
                   static_cast<double>(c.a));
}

vector3 first_three(const float (&v)[4])
{
    return {static_cast<double>(v[0]), static_cast<double>(v[1]), static_cast<double>(v[2])};
}

vector3 difference(const vector3& a, const vector3& b)
{
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}

vector3 scaled(const vector3& v, double by)
{
    return {v[0] * by, v[1] * by, v[2] * by};
}

// A point (w 1) or a direction (w 0) times a matrix.
vector3 times(const vector3& v, double w, const matrix64& m)
{
    vector3 out{};
    for (size_t column = 0; column < 3; ++column)
        out[column] = v[0] * m[column] + v[1] * m[4 + column] + v[2] * m[8 + column] + w * m[12 + column];
    return out;
}

// Without local viewer everything is seen from the same direction.
constexpr vector3 far_viewer = {0, 0, -1}; // where it is

vector3 halfway_between(const vector3& a, const vector3& b)
{
    return unit({a[0] + b[0], a[1] + b[1], a[2] + b[2]});
}

void make_source(const svga3d_light& from, const matrix64& view, light_source& made)
{
    const bool in_world = from.in_world_space != 0;
    const vector3 position = first_three(from.position);
    const vector3 direction = first_three(from.direction);
    made.positional = from.type != SVGA3D_LIGHTTYPE_DIRECTIONAL;
    made.spot = from.type == SVGA3D_LIGHTTYPE_SPOT1 || from.type == SVGA3D_LIGHTTYPE_SPOT2;
    made.position = in_world ? times(position, 1, view) : position;
    made.travel = unit(in_world ? times(direction, 0, view) : direction);
    made.toward = scaled(made.travel, -1);
    made.halfway = halfway_between(made.toward, far_viewer);
    made.diffuse = color_of(from.diffuse);
    made.specular = color_of(from.specular);
    made.ambient = color_of(from.ambient);
    made.range = static_cast<double>(from.range);
    made.falloff = static_cast<double>(from.falloff);
    made.attenuation = {static_cast<double>(from.attenuation0), static_cast<double>(from.attenuation1),
                        static_cast<double>(from.attenuation2)};
    // Angles are in radians and of the whole cone; cosines are compared, and fall as angles grow.
    made.cos_theta = cos_of(static_cast<double>(from.theta) / 2);
    made.cos_phi = cos_of(static_cast<double>(from.phi) / 2);
}

// How much of a light comes through its cone in a direction of travel.
double cone(const light_source& from, const vector3& travel)
{
    const double c = dot(from.travel, travel);
    if (c >= from.cos_theta)
        return 1;
    // Asked so, what is not a number is dark.
    if (!(c > from.cos_phi))
        return 0;
    return power_of((c - from.cos_phi) / (from.cos_theta - from.cos_phi), from.falloff);
}

vector3 unit_of_length(const vector3& v, double length)
{
    return length > 0 && std::isfinite(length) ? scaled(v, 1 / length) : vector3{};
}

// What arrives of a light at a point, and from where.
struct arrival {
    double strength;
    vector3 toward; // the light, of unit length
};

arrival arriving(const light_source& from, const vector3& at)
{
    if (!from.positional)
        return {1, from.toward};
    const vector3 path = difference(from.position, at);
    const double distance = std::sqrt(dot(path, path));
    const vector3 toward = unit_of_length(path, distance);
    // Beyond the range, or where either is not a number.
    if (!(distance <= from.range))
        return {0, toward};
    const auto& a = from.attenuation;
    const double divisor = a[0] + a[1] * distance + a[2] * distance * distance;
    const double attenuated = divisor > 0 ? 1 / divisor : 0;
    // A light without a divisor above 0 gives nothing: it would be infinitely bright, or dark by a negative amount.
    return {from.spot ? attenuated * cone(from, scaled(toward, -1)) : attenuated, toward};
}

// How much a light that arrives shines on the surface, before it is multiplied with its colour.
double shine(const lighting_state& by, const light_source& source, const arrival& here, const lit_vertex& vertex)
{
    vector3 halfway = source.halfway;
    if (by.local_viewer)
        halfway = halfway_between(here.toward, unit(scaled(vertex.position, -1)));
    else if (source.positional)
        halfway = halfway_between(here.toward, far_viewer);
    return here.strength * power_of(std::max(dot(vertex.normal, halfway), 0.0), by.shininess);
}

// The colour that a material source names.
const four& chosen(uint32_t source, const four& material, const lit_vertex& vertex)
{
    return source == 1 ? vertex.diffuse : source == 2 ? vertex.specular : material;
}

four clamped01(const four& v)
{
    return four_of(clamp01(v[0]), clamp01(v[1]), clamp01(v[2]), clamp01(v[3]));
}

} // namespace

vector3 unit(const vector3& v)
{
    return unit_of_length(v, std::sqrt(dot(v, v)));
}

double dot(const vector3& a, const vector3& b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

void make_lighting(const context& of, const matrix64& view, bool shows_specular, lighting_state& out)
{
    const auto& states = of.render_states;
    out.enabled = states[SVGA3D_RS_LIGHTINGENABLE] != 0;
    if (!out.enabled)
        return;
    out.local_viewer = states[SVGA3D_RS_LOCALVIEWER] != 0;
    out.shows_specular = shows_specular;
    out.count = 0;
    for (uint32_t i = 0; i < SVGA3D_LIGHTS; ++i)
        if (of.light_enabled[i])
            make_source(of.lights[i], view, out.sources[out.count++]);
    // The front's, for both sides.
    const svga3d_material& material = of.materials[0];
    out.diffuse = color_of(material.diffuse);
    out.specular = color_of(material.specular);
    out.ambient = color_of(material.ambient);
    out.emissive = color_of(material.emissive);
    out.shininess = static_cast<double>(material.shininess);
    out.source = {};
    if (states[SVGA3D_RS_VERTEXMATERIALENABLE])
        out.source = {states[SVGA3D_RS_DIFFUSEMATERIALSOURCE], states[SVGA3D_RS_SPECULARMATERIALSOURCE],
                      states[SVGA3D_RS_AMBIENTMATERIALSOURCE], states[SVGA3D_RS_EMISSIVEMATERIALSOURCE]};
    const uint32_t ambient = states[SVGA3D_RS_AMBIENT];
    const auto part = [ambient](uint32_t shift) { return (ambient >> shift & 255) / 255.0; };
    out.global_ambient = four_of(part(16), part(8), part(0), 0);
}

// The fourth lanes are worked out like the others and then replaced: only colours are lit.
void light(const lighting_state& by, lit_vertex& vertex)
{
    four ambient = by.global_ambient;
    four diffuse{};
    four specular{};
    for (uint32_t i = 0; i < by.count; ++i) {
        const light_source& source = by.sources[i];
        const arrival here = arriving(source, vertex.position);
        ambient = ambient + source.ambient * here.strength;
        const double facing = dot(vertex.normal, here.toward);
        // A surface that is turned away has neither diffuse light nor a highlight; ambient light reaches it.
        if (!(facing > 0))
            continue;
        diffuse = diffuse + source.diffuse * (here.strength * facing);
        if (by.shows_specular)
            specular = specular + source.specular * shine(by, source, here, vertex);
    }
    const four& material = chosen(by.source[0], by.diffuse, vertex);
    const four& shiny = chosen(by.source[1], by.specular, vertex);
    const four& dim = chosen(by.source[2], by.ambient, vertex);
    const four& glowing = chosen(by.source[3], by.emissive, vertex);
    four lit = clamped01(glowing + dim * ambient + material * diffuse);
    // Alpha is the diffuse material's, whatever shines on it.
    lit.high[1] = clamp01(material.high[1]);
    four shown = clamped01(shiny * specular);
    shown.high[1] = 0;
    vertex.diffuse = lit;
    vertex.specular = shown;
}

} // namespace kalix::device::raster

#include "hardware/gpu/vmware_svga/lib/device/raster/lighting.h"

#include "hardware/gpu/vmware_svga/lib/device/raster/numeric.h"

#include <algorithm>
#include <cmath>

namespace kalix::device::raster {
namespace {

using rgb = std::array<double, 3>;

rgb color_of(const svga3d_color4& c)
{
    return {static_cast<double>(c.r), static_cast<double>(c.g), static_cast<double>(c.b)};
}

rgba with_alpha(const svga3d_color4& c)
{
    return {{static_cast<double>(c.r), static_cast<double>(c.g), static_cast<double>(c.b), static_cast<double>(c.a)}};
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

light_source make_source(const svga3d_light& from, const matrix64& view)
{
    const bool in_world = from.in_world_space != 0;
    const vector3 position = first_three(from.position);
    const vector3 direction = first_three(from.direction);
    light_source made;
    made.positional = from.type != SVGA3D_LIGHTTYPE_DIRECTIONAL;
    made.spot = from.type == SVGA3D_LIGHTTYPE_SPOT1 || from.type == SVGA3D_LIGHTTYPE_SPOT2;
    made.position = in_world ? times(position, 1, view) : position;
    made.travel = unit(in_world ? times(direction, 0, view) : direction);
    made.toward = scaled(made.travel, -1);
    made.diffuse = color_of(from.diffuse);
    made.specular = color_of(from.specular);
    made.ambient = color_of(from.ambient);
    made.range = static_cast<double>(from.range);
    made.falloff = static_cast<double>(from.falloff);
    made.attenuation = {static_cast<double>(from.attenuation0), static_cast<double>(from.attenuation1),
                        static_cast<double>(from.attenuation2)};
    made.cos_theta = cos_of(static_cast<double>(from.theta) / 2);
    made.cos_phi = cos_of(static_cast<double>(from.phi) / 2);
    return made;
}

// How much of a light comes through its cone in a direction of travel.
double cone(const light_source& from, const vector3& travel)
{
    const double c = dot(from.travel, travel);
    if (c >= from.cos_theta)
        return 1;
    if (!(c > from.cos_phi))
        return 0;
    return power_of((c - from.cos_phi) / (from.cos_theta - from.cos_phi), from.falloff);
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
    const vector3 toward = unit(path);
    if (!(distance <= from.range))
        return {0, toward};
    const auto& a = from.attenuation;
    const double divisor = a[0] + a[1] * distance + a[2] * distance * distance;
    const double attenuated = divisor > 0 ? 1 / divisor : 0;
    return {from.spot ? attenuated * cone(from, scaled(toward, -1)) : attenuated, toward};
}

void add(rgb& to, const rgb& color, double factor)
{
    for (size_t i = 0; i < 3; ++i)
        to[i] += color[i] * factor;
}

// The colour that a material source names.
const rgba& chosen(uint32_t source, const rgba& material, const lit_vertex& vertex)
{
    return source == 1 ? vertex.diffuse : source == 2 ? vertex.specular : material;
}

} // namespace

vector3 unit(const vector3& v)
{
    const double length = std::sqrt(dot(v, v));
    return length > 0 && std::isfinite(length) ? scaled(v, 1 / length) : vector3{};
}

double dot(const vector3& a, const vector3& b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

lighting_state make_lighting(const context& of, const matrix64& view)
{
    const auto& states = of.render_states;
    lighting_state made;
    made.enabled = states[SVGA3D_RS_LIGHTINGENABLE] != 0;
    for (uint32_t i = 0; i < SVGA3D_LIGHTS && made.enabled; ++i)
        if (of.light_enabled[i])
            made.sources[made.count++] = make_source(of.lights[i], view);
    const svga3d_material& material = of.materials[0];
    made.diffuse = with_alpha(material.diffuse);
    made.specular = with_alpha(material.specular);
    made.ambient = with_alpha(material.ambient);
    made.emissive = with_alpha(material.emissive);
    made.shininess = static_cast<double>(material.shininess);
    if (states[SVGA3D_RS_VERTEXMATERIALENABLE])
        made.source = {states[SVGA3D_RS_DIFFUSEMATERIALSOURCE], states[SVGA3D_RS_SPECULARMATERIALSOURCE],
                       states[SVGA3D_RS_AMBIENTMATERIALSOURCE], states[SVGA3D_RS_EMISSIVEMATERIALSOURCE]};
    const uint32_t ambient = states[SVGA3D_RS_AMBIENT];
    for (size_t i = 0; i < 3; ++i)
        made.global_ambient[i] = (ambient >> (16 - 8 * i) & 255) / 255.0;
    made.local_viewer = states[SVGA3D_RS_LOCALVIEWER] != 0;
    return made;
}

void light(const lighting_state& by, lit_vertex& vertex)
{
    rgb ambient = by.global_ambient;
    rgb diffuse{};
    rgb specular{};
    const vector3 viewer = by.local_viewer ? unit(scaled(vertex.position, -1)) : vector3{0, 0, -1};
    for (uint32_t i = 0; i < by.count; ++i) {
        const light_source& source = by.sources[i];
        const arrival here = arriving(source, vertex.position);
        add(ambient, source.ambient, here.strength);
        const double facing = dot(vertex.normal, here.toward);
        if (!(facing > 0))
            continue;
        add(diffuse, source.diffuse, here.strength * facing);
        const vector3 sum = {here.toward[0] + viewer[0], here.toward[1] + viewer[1], here.toward[2] + viewer[2]};
        const double shine = dot(vertex.normal, unit(sum));
        add(specular, source.specular, here.strength * power_of(std::max(shine, 0.0), by.shininess));
    }
    const rgba& material = chosen(by.source[0], by.diffuse, vertex);
    const rgba& shiny = chosen(by.source[1], by.specular, vertex);
    const rgba& dim = chosen(by.source[2], by.ambient, vertex);
    const rgba& glowing = chosen(by.source[3], by.emissive, vertex);
    rgba lit;
    rgba shown;
    for (size_t i = 0; i < 3; ++i) {
        lit.channel[i] = clamp01(glowing.channel[i] + dim.channel[i] * ambient[i] + material.channel[i] * diffuse[i]);
        shown.channel[i] = clamp01(shiny.channel[i] * specular[i]);
    }
    lit.channel[3] = clamp01(material.channel[3]);
    vertex.diffuse = lit;
    vertex.specular = shown;
}

} // namespace kalix::device::raster

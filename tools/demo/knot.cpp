// Rings of vertices along a closed curve, joined by quads. The last ring repeats the first, with texture coordinates
// of its own: a seam of the texture needs two vertices in one place.

#include "tools/demo/knot.h"

#include <algorithm>
#include <numbers>

namespace kalix::demo {
namespace {

constexpr int rings = 240; // along the curve
constexpr int sides = 20;  // around the tube
constexpr float thickness = 0.34F;
constexpr int turns_around = 2, turns_through = 3;
constexpr float pi = std::numbers::pi_v<float>;

vector3 operator+(const vector3& a, const vector3& b)
{
    return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
}

vector3 operator-(const vector3& a, const vector3& b)
{
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}

vector3 operator*(const vector3& a, float factor)
{
    return {a[0] * factor, a[1] * factor, a[2] * factor};
}

float dot(const vector3& a, const vector3& b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

vector3 cross(const vector3& a, const vector3& b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

vector3 unit(const vector3& a)
{
    return a * (1 / std::sqrt(dot(a, a)));
}

vector3 curve(float t)
{
    const float around = turns_around * t;
    const float radius = 1 + 0.45F * std::cos(turns_through * t);
    return {radius * std::cos(around), radius * std::sin(around), 0.45F * std::sin(turns_through * t)};
}

// Ring r of the tube, in a frame that follows the curve.
void add_ring(knot& to, int r)
{
    const float t = 2 * pi * static_cast<float>(r) / rings;
    const vector3 center = curve(t);
    // A difference will do for a tangent; the side is taken against a direction that the curve never follows.
    const vector3 forward = unit(curve(t + 0.01F) - center);
    const vector3 side = unit(cross(forward, center + vector3{0, 0, 0.8F}));
    const vector3 up = cross(side, forward);
    for (int s = 0; s <= sides; ++s) {
        const float angle = 2 * pi * static_cast<float>(s) / sides;
        const vector3 normal = side * std::cos(angle) + up * std::sin(angle);
        const vector3 at = center + normal * thickness;
        to.vertices.push_back(
            {at[0], at[1], at[2], 24 * static_cast<float>(r) / rings, 2 * static_cast<float>(s) / sides});
        to.normals.push_back(normal);
    }
}

void add_quads(knot& to, int r)
{
    constexpr int row = sides + 1;
    for (int s = 0; s < sides; ++s) {
        const auto corner = [&](int ring, int side) { return static_cast<uint16_t>(ring * row + side); };
        for (const uint16_t index : {corner(r, s), corner(r + 1, s), corner(r + 1, s + 1), corner(r, s),
                                     corner(r + 1, s + 1), corner(r, s + 1)})
            to.indices.push_back(index);
    }
}

// A hue that runs once along the knot.
vector3 hue(float turn)
{
    const auto channel = [turn](float shift) { return 0.62F + 0.38F * std::cos(2 * pi * (turn + shift)); };
    return {channel(0), channel(-0.33F), channel(-0.67F)};
}

uint32_t word_of(const vector3& color)
{
    uint32_t word = 0xFF;
    for (const float channel : color)
        word = word << 8 | static_cast<uint32_t>(std::clamp(channel, 0.0F, 1.0F) * 255 + 0.5F);
    return word;
}

} // namespace

knot make_knot()
{
    knot made;
    for (int r = 0; r <= rings; ++r)
        add_ring(made, r);
    for (int r = 0; r < rings; ++r)
        add_quads(made, r);
    return made;
}

void shade(const knot& of, const vector3& light, const vector3& viewer, std::vector<uint32_t>& colors)
{
    colors.resize(of.vertices.size());
    for (size_t i = 0; i < colors.size(); ++i) {
        const knot_vertex& vertex = of.vertices[i];
        const vector3 half = unit(light + unit(viewer - vector3{vertex.x, vertex.y, vertex.z}));
        const float diffuse = std::max(0.0F, dot(of.normals[i], light));
        const float shine = std::pow(std::max(0.0F, dot(of.normals[i], half)), 24.0F);
        const vector3 base = hue(vertex.u / 24) * (0.22F + 0.85F * diffuse);
        colors[i] = word_of(base + vector3{1, 1, 1} * (0.55F * shine));
    }
}

vector3 turned_back(const matrix& m, const vector3& v)
{
    // The inverse of a rotation is its transpose.
    return {dot(v, {m[0], m[1], m[2]}), dot(v, {m[4], m[5], m[6]}), dot(v, {m[8], m[9], m[10]})};
}

} // namespace kalix::demo

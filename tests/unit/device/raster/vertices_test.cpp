// What a vertex's attributes become: light, generated coordinates, and lookups in cubes, volumes and blocks,
// each against the interface's own rule, worked out here with the C library's functions.

#include "tests/unit/device/raster/scene.h"

#include <cmath>

namespace kalix::device::test {
namespace {

using vector3 = std::array<double, 3>;

vector3 operator+(const vector3& a, const vector3& b)
{
    return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
}
vector3 operator*(const vector3& a, double by)
{
    return {a[0] * by, a[1] * by, a[2] * by};
}
double dot(const vector3& a, const vector3& b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}
vector3 unit(const vector3& a)
{
    return a * (1 / std::sqrt(dot(a, a)));
}

// Draws points that all land on the middle of a 9 x 9 target, and looks at what came of them.
class VertexTest : public scene {
protected:
    VertexTest()
    {
        make_targets(9, 9);
        // Whatever the position: the middle of clip space.
        state.transforms[SVGA3D_TRANSFORM_PROJECTION] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0.5f, 1};
    }

    uint32_t shown(const lit_corner& what)
    {
        clear(0);
        EXPECT_EQ(draw_lit(SVGA3D_PRIMITIVE_POINTLIST, 1, {&what, 1}), draw_result::done);
        return pixel(4, 4) != 0 ? pixel(4, 4) : pixel(5, 5);
    }

    float within(float low, float high) { return random_.within(low, high); }
    vector3 any_vector(float reach) { return {within(-reach, reach), within(-reach, reach), within(-reach, reach)}; }
    svga3d_color4 any_color() { return {within(0, 1), within(0, 1), within(0, 1), within(0, 1)}; }

    void any_texture(uint32_t faces, const svga3d_size& size)
    {
        texture_of(faces, {size}, SVGA3D_TEX_FILTER_NEAREST,
                   [this](uint32_t, uint32_t, uint32_t) { return random_(); });
    }
    uint32_t texel(uint32_t face, uint32_t x, uint32_t y, uint32_t z = 0)
    {
        uint32_t word = 0;
        std::memcpy(&word, view(texture_sid, face).texel(x, y, z), sizeof word);
        return word;
    }

    dice random_;
};

// ---- Light --------------------------------------------------------------------------------------------

struct reference_light {
    svga3d_light data;
    vector3 position, travel; // in view space
};

vector3 rgb(const svga3d_color4& c)
{
    return {c.r, c.g, c.b};
}

rgba lit(const context& of, const std::vector<reference_light>& lights, const vector3& at, const vector3& normal)
{
    const svga3d_material& m = of.materials[0];
    const bool local = of.render_states[SVGA3D_RS_LOCALVIEWER];
    const vector3 viewer = local ? unit(at * -1) : vector3{0, 0, -1};
    vector3 ambient{}, diffuse{}, specular{};
    for (size_t i = 0; i < 3; ++i)
        ambient[i] = unpacked(of.render_states[SVGA3D_RS_AMBIENT])[i];
    for (const reference_light& light : lights) {
        const svga3d_light& l = light.data;
        vector3 toward = light.travel * -1;
        double strength = 1;
        if (l.type != SVGA3D_LIGHTTYPE_DIRECTIONAL) {
            const vector3 path = light.position + at * -1;
            const double d = std::sqrt(dot(path, path));
            toward = unit(path);
            const double a0 = l.attenuation0, a1 = l.attenuation1, a2 = l.attenuation2;
            strength = d <= static_cast<double>(l.range) ? 1 / (a0 + a1 * d + a2 * d * d) : 0;
        }
        if (l.type == SVGA3D_LIGHTTYPE_SPOT1 || l.type == SVGA3D_LIGHTTYPE_SPOT2) {
            const double c = dot(light.travel, toward * -1);
            const double inner = std::cos(static_cast<double>(l.theta) / 2);
            const double outer = std::cos(static_cast<double>(l.phi) / 2);
            strength *= c >= inner   ? 1
                        : c <= outer ? 0
                                     : std::pow((c - outer) / (inner - outer), static_cast<double>(l.falloff));
        }
        const double facing = dot(normal, toward);
        const double shine = std::max(0.0, dot(normal, unit(toward + viewer)));
        ambient = ambient + rgb(l.ambient) * strength;
        if (facing > 0) {
            diffuse = diffuse + rgb(l.diffuse) * (strength * facing);
            specular = specular + rgb(l.specular) * (strength * std::pow(shine, static_cast<double>(m.shininess)));
        }
    }
    rgba out{};
    for (size_t i = 0; i < 3; ++i) {
        const double base = rgb(m.emissive)[i] + rgb(m.ambient)[i] * ambient[i] + rgb(m.diffuse)[i] * diffuse[i];
        out[i] = std::clamp(base, 0.0, 1.0) + std::clamp(rgb(m.specular)[i] * specular[i], 0.0, 1.0);
    }
    out[3] = static_cast<double>(m.diffuse.a);
    return out;
}

TEST_F(VertexTest, LightsFollowTheirRule)
{
    set(SVGA3D_RS_LIGHTINGENABLE, 1);
    set(SVGA3D_RS_NORMALIZENORMALS, 1);
    set(SVGA3D_RS_SPECULARENABLE, 1);
    for (int round = 0; round < 500; ++round) {
        SCOPED_TRACE(round);
        set(SVGA3D_RS_LOCALVIEWER, random_.below(2));
        set(SVGA3D_RS_AMBIENT, random_());
        state.materials[0] = {any_color(), any_color(), any_color(), any_color(), within(0, 20)};
        // The world shears and stretches; the view turns about y and moves.
        const float stretch = within(0.5f, 2), shear = within(-1, 1), angle = within(-3, 3);
        const float c = std::cos(angle), s = std::sin(angle);
        state.transforms[SVGA3D_TRANSFORM_WORLD] = {stretch, shear, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0.5f, 0, 0, 1};
        state.transforms[SVGA3D_TRANSFORM_VIEW] = {c, 0, -s, 0, 0, 1, 0, 0, s, 0, c, 0, 0, 0.25f, 6, 1};
        const auto viewed = [&](const vector3& v, double w) {
            return vector3{v[0] * c + v[2] * s, v[1] + 0.25 * w, -v[0] * s + v[2] * c + 6 * w};
        };
        std::vector<reference_light> lights;
        for (uint32_t i = 0; i < SVGA3D_LIGHTS; ++i) {
            state.light_enabled[i] = random_.below(3) == 0;
            const vector3 position = any_vector(4), direction = any_vector(1);
            svga3d_light& l = state.lights[i];
            l = {.type = 1 + random_.below(4),
                 .in_world_space = random_.below(2),
                 .diffuse = any_color(),
                 .specular = any_color(),
                 .ambient = {within(0, 0.2f), within(0, 0.2f), within(0, 0.2f), 1},
                 .position = {},
                 .direction = {},
                 .range = within(2, 12),
                 .falloff = within(0.2f, 3),
                 .attenuation0 = within(0.2f, 1),
                 .attenuation1 = within(0, 0.3f),
                 .attenuation2 = within(0, 0.1f),
                 .theta = 0,
                 .phi = within(0.5f, 3)};
            std::ranges::copy(position, l.position);
            std::ranges::copy(direction, l.direction);
            l.theta = l.phi * within(0.1f, 0.95f);
            const bool world = l.in_world_space != 0;
            if (state.light_enabled[i])
                lights.push_back(
                    {l, world ? viewed(position, 1) : position, unit(world ? viewed(direction, 0) : direction)});
        }
        const lit_corner what{within(-2, 2), within(-2, 2), within(-2, 2), within(-1, 1), within(-1, 1), within(-1, 1)};
        const vector3 at = {what.x * double{stretch} + 0.5, what.x * double{shear} + what.y, what.z};
        // Normals go by the inverse transpose of the stretch and shear.
        const vector3 normal = unit({(what.nx - double{shear} * what.ny) / double{stretch}, what.ny, what.nz});
        expect_color(shown(what), lit(state, lights, viewed(at, 1), viewed(normal, 0)));
    }
}

TEST_F(VertexTest, MaterialSourcesAreTheVertexsColours)
{
    set(SVGA3D_RS_LIGHTINGENABLE, 1);
    set(SVGA3D_RS_AMBIENT, 0xFFFFFFFF);
    state.materials[0] = {{0, 0, 0, 0.25f}, {0.5f, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0.25f, 0}, 1};
    const lit_corner what{0, 0, 0, 0, 0, 1, 0x80402010, 0x00102040};
    expect_color(shown(what), {0.5, 0, 0.25, 0.25});
    set(SVGA3D_RS_DIFFUSEMATERIALSOURCE, 1);
    set(SVGA3D_RS_AMBIENTMATERIALSOURCE, 2);
    set(SVGA3D_RS_EMISSIVEMATERIALSOURCE, 1);
    expect_color(shown(what), {0.5, 0, 0.25, 0.25}); // without their state
    set(SVGA3D_RS_VERTEXMATERIALENABLE, 1);
    EXPECT_EQ(shown(what), 0x80504050u);
    // Matrices without an inverse, and so without normals, are lit by what needs none.
    state.transforms[SVGA3D_TRANSFORM_WORLD] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    state.light_enabled[0] = true;
    state.lights[0].type = SVGA3D_LIGHTTYPE_DIRECTIONAL;
    state.lights[0].diffuse = {1, 1, 1, 1};
    EXPECT_EQ(shown(what), 0x80504050u);
}

// ---- Lookups ------------------------------------------------------------------------------------------

TEST_F(VertexTest, CubesAreLookedUpByDirection)
{
    constexpr uint32_t side = 8;
    any_texture(SVGA3D_FACES, {side, side, 1});
    for (int i = 0; i < 2000; ++i) {
        const vector3 d = any_vector(3);
        const double x = d[0], y = d[1], z = d[2], ax = std::abs(x), ay = std::abs(y), az = std::abs(z);
        uint32_t face;
        double s, t, major;
        if (ax >= ay && ax >= az)
            face = x < 0, s = x < 0 ? z : -z, t = -y, major = ax;
        else if (ay >= az)
            face = 2 + (y < 0), s = x, t = y < 0 ? -z : z, major = ay;
        else
            face = 4 + (z < 0), s = z < 0 ? -x : x, t = -y, major = az;
        const double across = (s / major + 1) / 2 * side;
        const double down = (t / major + 1) / 2 * side;
        const auto is_close = [](double at) { return std::abs(at - std::round(at)) < 1e-4; };
        if (is_close(across) || is_close(down))
            continue; // single precision may take it over a texel's edge
        const auto column = std::min(static_cast<uint32_t>(across), side - 1);
        const auto row = std::min(static_cast<uint32_t>(down), side - 1);
        const auto f = [](double v) { return static_cast<float>(v); };
        ASSERT_EQ(shown({0, 0, 0, 0, 0, 1, ~0u, 0, f(x), f(y), f(z)}), texel(face, column, row))
            << x << " " << y << " " << z;
    }
}

TEST_F(VertexTest, VolumesAreLookedUpInThreeDirections)
{
    any_texture(1, {5, 3, 4});
    const auto at = [](float s, float t, float r) { return lit_corner{0, 0, 0, 0, 0, 1, ~0u, 0, s / 5, t / 3, r / 4}; };
    EXPECT_EQ(shown(at(3.5f, 1.5f, 2.5f)), texel(0, 3, 1, 2));
    EXPECT_EQ(shown(at(0.5f, 2.5f, 1.5f)), texel(0, 0, 2, 1));
    show_texture(SVGA3D_TEX_FILTER_LINEAR);
    rgba mean{}; // of the eight texels around a corner
    for (uint32_t i = 0; i < 8; ++i)
        for (size_t channel = 0; channel < 4; ++channel)
            mean[channel] += unpacked(texel(0, 1 + i % 2, 1 + i / 2 % 2, 2 + i / 4))[channel] / 8;
    expect_color(shown(at(2, 2, 3)), mean);
}

TEST_F(VertexTest, CoordinatesAreGenerated)
{
    any_texture(SVGA3D_FACES, {1, 1, 1});
    state.transforms[SVGA3D_TRANSFORM_WORLD] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 10, 1};
    set(SVGA3D_RS_NORMALIZENORMALS, 1);
    struct row {
        uint32_t generation;
        lit_corner at;
        uint32_t face;
    };
    const row rows[] = {{1, {1, 20, 0}, 2},                  // the eye sees it high up
                        {1, {0, 0, -12}, 5},                 // behind the eye
                        {2, {0, 0, 0, -5, 1, 1}, 1},         // its normal looks to the left
                        {3, {0, 0, 0, 0, 0, -1}, 5},         // thrown straight back
                        {3, {0, 0, 0, -0.7f, 0, -0.7f}, 1}}; // thrown to the left
    for (const row& each : rows) {
        stage(0, SVGA3D_TS_TEXCOORDGEN, each.generation);
        EXPECT_EQ(shown(each.at), texel(each.face, 0, 0)) << each.generation;
    }
    // The matrix comes behind: here it exchanges x and z.
    state.transforms[SVGA3D_TRANSFORM_TEXTURE0] = {0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 1};
    stage(0, SVGA3D_TS_TEXTURETRANSFORMFLAGS, 7);
    EXPECT_EQ(shown(rows[3].at), texel(1, 0, 0));
    stage(0, SVGA3D_TS_TEXCOORDGEN, 4);
    EXPECT_EQ(draw(SVGA3D_PRIMITIVE_POINTLIST, 1, {{0, 0}}, SVGA3D_DECLUSAGE_POSITION), draw_result::not_supported);
}

TEST_F(VertexTest, BlocksHoldTheirTexels)
{
    // Colours 0xF800 (red) and 0x001F (blue), codes 0 1 2 3 in each row.
    constexpr uint32_t codes = 0xE4E4E4E4;
    struct row {
        uint32_t format;
        std::vector<uint32_t> block;
        uint32_t wanted[4];
    };
    // Alphas of DXT3: 0, 5, 10, 15 sixteenths; of DXT5: eight between 255 and 3 (codes 0 1 2 7), six and the ends.
    const row rows[] = {
        {SVGA3D_DXT1, {0x001FF800, codes}, {0xFFFF0000, 0xFF0000FF, 0xFFAA0055, 0xFF5500AA}},
        {SVGA3D_DXT1, {0xF800001F, codes}, {0xFF0000FF, 0xFFFF0000, 0xFF800080, 0x00000000}},
        {SVGA3D_DXT3, {0xFA50FA50, 0xFA50FA50, 0x001FF800, codes}, {0x00FF0000, 0x550000FF, 0xAAAA0055, 0xFF5500AA}},
        {SVGA3D_DXT2, {0xFA50FA50, 0xFA50FA50, 0xF800001F, codes}, {0x000000FF, 0x55FF0000, 0xAA5500AA, 0xFFAA0055}},
        {SVGA3D_DXT5, {0x0E8803FF, 0, 0x001FF800, codes}, {0xFFFF0000, 0x030000FF, 0xDBAA0055, 0x275500AA}},
        {SVGA3D_DXT4, {0x0E88FF03, 0, 0x001FF800, codes}, {0x03FF0000, 0xFF0000FF, 0x35AA0055, 0xFF5500AA}},
    };
    for (const row& each : rows) {
        define(texture_sid, each.format, 4, 4);
        std::memcpy(view(texture_sid).bytes, each.block.data(), each.block.size() * 4);
        show_texture(SVGA3D_TEX_FILTER_NEAREST);
        for (uint32_t x = 0; x < 4; ++x) {
            const uint32_t got = shown({0, 0, 0, 0, 0, 1, ~0u, 0, (static_cast<float>(x) + 0.5f) / 4, 0.1f, 0});
            EXPECT_EQ(got, each.wanted[x]) << each.format << " " << x;
        }
    }
}

} // namespace
} // namespace kalix::device::test

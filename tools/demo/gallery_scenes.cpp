// Each scene sets the states that it is about, and no other: it can be read as the recipe for that one feature. What a
// right picture shows is said where it does not meet the eye.

#include "tools/demo/gallery_scenes.h"

#include "tools/demo/studio.h"
#include "tools/demo/textures.h"

namespace kalix::demo {
namespace {

void tiles(studio& on, uint32_t stage = 0)
{
    on.texture(stage, SVGA3D_A8R8G8B8, {{tiles_extent, tiles_extent, 1, 0}}, 1, tiles_texture());
}

void filter(studio& on, uint32_t which)
{
    on.texture_state(0, {{SVGA3D_TS_MINFILTER, which}, {SVGA3D_TS_MAGFILTER, which}});
}

// From the viewer's upper left, so that highlights lie where they are expected.
svga3d_light sun()
{
    svga3d_light light{};
    light.type = SVGA3D_LIGHTTYPE_DIRECTIONAL;
    light.diffuse = light.specular = {1, 1, 1, 1};
    light.direction[0] = 0.6F;
    light.direction[1] = -0.7F;
    light.direction[2] = 1;
    return light;
}

void porcelain(studio& on)
{
    on.set({{SVGA3D_RS_AMBIENT, 0xFF282830}});
    on.material({{0.85F, 0.8F, 0.72F, 1}, {1, 1, 1, 1}, {0.7F, 0.7F, 0.7F, 1}, {0, 0, 0, 0}, 30});
}

// A ramp of one colour over an 8 x 8 face, lighter towards its middle.
void add_face(std::vector<uint32_t>& words, uint32_t color)
{
    for (uint32_t y = 0; y < 8; ++y)
        for (uint32_t x = 0; x < 8; ++x) {
            const bool edge = x == 0 || y == 0 || x == 7 || y == 7;
            words.push_back(edge ? 0xFFFFFFFF : color);
        }
}

} // namespace

void draw_colours(studio& on)
{
    on.sphere();
}

void draw_light(studio& on)
{
    porcelain(on);
    on.light(0, sun());
    on.sphere();
}

void draw_spots(studio& on)
{
    porcelain(on);
    const svga3d_color4 colors[] = {{1, 0.2F, 0.2F, 1}, {0.2F, 1, 0.3F, 1}, {0.3F, 0.4F, 1, 1}};
    for (uint32_t i = 0; i < 3; ++i) {
        const float x = static_cast<float>(i) - 1;
        svga3d_light light{};
        light.type = SVGA3D_LIGHTTYPE_SPOT1;
        light.diffuse = light.specular = colors[i];
        light.position[0] = 1.4F * x;
        light.position[1] = 0.8F;
        light.direction[0] = -0.5F * x;
        light.direction[1] = -0.3F;
        light.direction[2] = 1;
        light.range = 20;
        light.falloff = 1;
        light.attenuation0 = 1;
        light.theta = 0.25F;
        light.phi = 0.5F;
        on.light(i, light);
    }
    on.sphere();
}

void draw_flat(studio& on)
{
    on.set({{SVGA3D_RS_SHADEMODE, SVGA3D_SHADEMODE_FLAT}});
    draw_light(on);
}

// The same square twice, near and turned, with texels larger than pixels: edges here, and none in draw_linear().
void draw_nearest(studio& on)
{
    tiles(on);
    filter(on, SVGA3D_TEX_FILTER_NEAREST);
    on.place(0.4F, 0, 0, -1.6F);
    on.square(0.6F, 0xFFFFFFFF, 0.3F);
}

void draw_linear(studio& on)
{
    tiles(on);
    on.place(0.4F, 0, 0, -1.6F);
    on.square(0.6F, 0xFFFFFFFF, 0.3F);
}

// Each level has a colour of its own, so that it shows which is taken where.
void draw_mipmaps(studio& on)
{
    const uint32_t colors[] = {0xFFE05050, 0xFFE0A040, 0xFFE0E060, 0xFF60D060, 0xFF50A0E0, 0xFF8060E0, 0xFFC060C0};
    std::vector<surface_size> sizes;
    std::vector<uint32_t> words;
    for (uint32_t level = 0; level < 7; ++level) {
        const uint32_t side = 64u >> level;
        const uint32_t tile = std::max(side / 8, 1u);
        sizes.push_back({side, side, 1, 0});
        for (uint32_t i = 0; i < side * side; ++i)
            words.push_back((i / side / tile + i % side / tile) % 2 ? colors[level] : 0xFF202020);
    }
    on.texture(0, SVGA3D_A8R8G8B8, sizes, 1, words);
    on.texture_state(0, {{SVGA3D_TS_MIPFILTER, SVGA3D_TEX_FILTER_LINEAR}});
    on.draw(SVGA3D_PRIMITIVE_TRIANGLEFAN, 2,
            {{-20, -1, 36, 0, 1, 0, ~0u, -20, 36, 0},
             {20, -1, 36, 0, 1, 0, ~0u, 20, 36, 0},
             {20, -1, -2, 0, 1, 0, ~0u, 20, -2, 0},
             {-20, -1, -2, 0, 1, 0, ~0u, -20, -2, 0}});
}

// One square for each mode, its coordinates running from -1 to 2, so that the outer ring is the mode's.
void draw_addresses(studio& on)
{
    tiles(on);
    for (uint32_t mode = SVGA3D_TEX_ADDRESS_WRAP; mode <= SVGA3D_TEX_ADDRESS_EDGE; ++mode) {
        on.texture_state(0,
                         {{SVGA3D_TS_ADDRESSU, mode}, {SVGA3D_TS_ADDRESSV, mode}, {SVGA3D_TS_BORDERCOLOR, 0xFFE07030}});
        const uint32_t place = mode - 1;
        on.place(0, (static_cast<float>(place % 3) - 1) * 0.95F, place < 3 ? 0.5F : -0.5F, 0);
        on.square(0.42F, 0xFFFFFFFF, 2);
    }
}

// Coordinates are generated from view and normal, so the vertices' own do not matter: each face's white rim shows
// where the cube's edges are reflected.
void draw_reflection(studio& on)
{
    std::vector<uint32_t> words;
    for (const uint32_t color : {0xFFD04040u, 0xFF40D0D0u, 0xFF70A0FFu, 0xFF705030u, 0xFFD0D040u, 0xFF8040D0u})
        add_face(words, color);
    on.texture(0, SVGA3D_A8R8G8B8, {{8, 8, 1, 0}}, 6, words);
    on.texture_state(0, {{SVGA3D_TS_TEXCOORDGEN, 3}, {SVGA3D_TS_COLOROP, SVGA3D_TC_SELECTARG1}});
    on.set({{SVGA3D_RS_NORMALIZENORMALS, 1}});
    on.place(0.5F);
    on.sphere();
}

void draw_volume(studio& on)
{
    std::vector<uint32_t> words;
    for (uint32_t z = 0; z < 16; ++z)
        for (uint32_t y = 0; y < 16; ++y)
            for (uint32_t x = 0; x < 16; ++x)
                words.push_back((x / 4 + y / 4 + z / 4) % 2 ? 0xFFF0E0B0
                                                            : 0xFF000000 | x * 12 << 16 | y * 12 << 8 | z * 12);
    on.texture(0, SVGA3D_A8R8G8B8, {{16, 16, 16, 0}}, 1, words);
    on.texture_state(0, {{SVGA3D_TS_COLOROP, SVGA3D_TC_SELECTARG1}});
    on.sphere();
}

// Four formats of blocks, each of two colours and what lies between them.
void draw_blocks(studio& on)
{
    struct block_row {
        uint32_t format;
        std::vector<uint32_t> words;
    };
    const block_row rows[] = {{SVGA3D_DXT1, {0x001FFFE0, 0xE4E4E4E4}},
                              {SVGA3D_DXT1, {0xFFE0001F, 0xE4E4E4E4}},
                              {SVGA3D_DXT3, {0xFEDCBA98, 0x76543210, 0xF81F07E0, 0x1B1BE4E4}},
                              {SVGA3D_DXT5, {0x0E8810FF, 0xE8800E88, 0xF81F07E0, 0x1B1BE4E4}}};
    on.set({{SVGA3D_RS_BLENDENABLE, 1},
            {SVGA3D_RS_SRCBLEND, SVGA3D_BLENDOP_SRCALPHA},
            {SVGA3D_RS_DSTBLEND, SVGA3D_BLENDOP_INVSRCALPHA}});
    for (uint32_t i = 0; i < 4; ++i) {
        on.texture(0, rows[i].format, {{4, 4, 1, 0}}, 1, rows[i].words);
        filter(on, SVGA3D_TEX_FILTER_NEAREST);
        on.place(0, i % 2 ? 0.65F : -0.65F, i < 2 ? 0.55F : -0.55F, 0);
        on.square(0.5F);
    }
}

// The second stage is clamped: its glow lies once on the square, the first stage's tiles in every part of it.
void draw_stages(studio& on)
{
    tiles(on);
    std::vector<uint32_t> glow;
    for (int y = -8; y < 8; ++y)
        for (int x = -8; x < 8; ++x) {
            const int light = std::max(0, 255 - 4 * (x * x + y * y));
            glow.push_back(0xFF000000u | static_cast<uint32_t>(light) * 0x010101u);
        }
    on.texture(1, SVGA3D_A8R8G8B8, {{16, 16, 1, 0}}, 1, glow);
    on.texture_state(1,
                     {{SVGA3D_TS_ADDRESSU, SVGA3D_TEX_ADDRESS_CLAMP}, {SVGA3D_TS_ADDRESSV, SVGA3D_TEX_ADDRESS_CLAMP}});
    on.square(1.1F);
}

void draw_fog(studio& on)
{
    tiles(on);
    // Fog of the background's colour: what is far enough away is not there.
    on.set({{SVGA3D_RS_FOGENABLE, 1}, {SVGA3D_RS_FOGMODE, 3 | 2 << 8}, {SVGA3D_RS_FOGCOLOR, 0xFF1B2238}});
    on.set(SVGA3D_RS_FOGSTART, 2);
    on.set(SVGA3D_RS_FOGEND, 11);
    for (uint32_t i = 0; i < 7; ++i) {
        const float z = static_cast<float>(6 - i) * 1.5F;
        on.place(0.6F, (i % 2 ? 0.9F : -0.9F) + 0.1F * z, -0.1F, z);
        on.sphere(0.7F);
    }
}

// Ring or nothing, no blending: through a hole shows what is behind it, in whatever order the triangles come.
void draw_alpha_test(studio& on)
{
    std::vector<uint32_t> words;
    for (int y = -16; y < 16; ++y)
        for (int x = -16; x < 16; ++x)
            words.push_back((x * x + y * y < 190 && x * x + y * y > 60 ? 0xFF000000u : 0) | 0x70C0FF);
    on.texture(0, SVGA3D_A8R8G8B8, {{32, 32, 1, 0}}, 1, words);
    on.texture_state(0, {{SVGA3D_TS_ALPHAARG1, SVGA3D_TA_TEXTURE}});
    on.set({{SVGA3D_RS_ALPHATESTENABLE, 1}, {SVGA3D_RS_ALPHAFUNC, SVGA3D_CMP_GREATER}});
    on.set(SVGA3D_RS_ALPHAREF, 0.5F);
    on.place(0.3F);
    on.sphere();
}

// Lights add up: yellow, cyan, magenta where two meet, nearly white in the middle. No depth, so all of them count.
void draw_blending(studio& on)
{
    on.set({{SVGA3D_RS_ZENABLE, 0},
            {SVGA3D_RS_BLENDENABLE, 1},
            {SVGA3D_RS_SRCBLEND, SVGA3D_BLENDOP_SRCALPHA},
            {SVGA3D_RS_DSTBLEND, SVGA3D_BLENDOP_ONE}});
    const uint32_t colors[] = {0xB0FF3030, 0xB030FF30, 0xB03060FF};
    for (uint32_t i = 0; i < 3; ++i) {
        on.place(0, (static_cast<float>(i) - 1) * 0.45F, i == 1 ? 0.3F : -0.25F, 0);
        on.square(0.6F, colors[i]);
    }
}

// First the stencil without colour, then the sphere where the stencil is still clear.
void draw_stencil(studio& on)
{
    on.set({{SVGA3D_RS_STENCILENABLE, 1},
            {SVGA3D_RS_STENCILPASS, SVGA3D_STENCILOP_REPLACE},
            {SVGA3D_RS_STENCILREF, 1},
            {SVGA3D_RS_COLORWRITEENABLE, 0},
            {SVGA3D_RS_ZENABLE, 0}});
    for (int i = -2; i <= 2; ++i) { // bars, in the stencil alone
        on.place(0, static_cast<float>(i) * 0.5F, 0, 0);
        on.square(0.16F);
    }
    on.set({{SVGA3D_RS_STENCILFUNC, SVGA3D_CMP_NOTEQUAL},
            {SVGA3D_RS_STENCILPASS, SVGA3D_STENCILOP_KEEP},
            {SVGA3D_RS_COLORWRITEENABLE, 15},
            {SVGA3D_RS_ZENABLE, 1}});
    tiles(on);
    on.place(0.4F);
    on.sphere();
}

void draw_cut(studio& on)
{
    const float planes[2][4] = {{0.8F, 0.3F, 0.5F, 0.25F}, {-0.2F, -1, 0.2F, 0.6F}};
    for (uint32_t i = 0; i < 2; ++i)
        client::check(kalix_cmd_set_clip_plane(on.commands().list(), on.cid(), i, planes[i]), "append a command");
    on.set({{SVGA3D_RS_CLIPPLANEENABLE, 3}});
    on.sphere();
}

// Faces towards the viewer are culled, so what shows is the inside of the far half.
void draw_wires(studio& on)
{
    on.set({{SVGA3D_RS_FILLMODE, SVGA3D_FILLMODE_LINE}, {SVGA3D_RS_CULLMODE, SVGA3D_FACE_FRONT}});
    on.sphere();
}

// Near points are large, far ones small: a size goes by one over the distance.
void draw_points(studio& on)
{
    std::vector<uint32_t> words;
    for (int y = -8; y < 8; ++y)
        for (int x = -8; x < 8; ++x)
            words.push_back(static_cast<uint32_t>(std::max(0, 255 - 4 * (x * x + y * y))) << 24 | 0xFFFFFF);
    on.texture(0, SVGA3D_A8R8G8B8, {{16, 16, 1, 0}}, 1, words);
    on.texture_state(0, {{SVGA3D_TS_ALPHAARG1, SVGA3D_TA_TEXTURE}});
    on.set({{SVGA3D_RS_POINTSPRITEENABLE, 1},
            {SVGA3D_RS_POINTSCALEENABLE, 1},
            {SVGA3D_RS_ZWRITEENABLE, 0},
            {SVGA3D_RS_BLENDENABLE, 1},
            {SVGA3D_RS_SRCBLEND, SVGA3D_BLENDOP_SRCALPHA},
            {SVGA3D_RS_DSTBLEND, SVGA3D_BLENDOP_ONE}});
    on.set(SVGA3D_RS_POINTSCALE_A, 0);
    on.set(SVGA3D_RS_POINTSCALE_C, 1);
    on.set(SVGA3D_RS_POINTSIZE, 0.22F);
    std::vector<studio_vertex> points;
    for (int i = 0; i < 400; ++i) {
        const float t = static_cast<float>(i) * 0.11F, rise = static_cast<float>(i) / 200 - 1;
        const uint32_t color = 0xFF000000u | static_cast<uint32_t>(i * 255 / 400) << 16 | 0x60u << 8 |
                               static_cast<uint32_t>(255 - i * 255 / 400);
        points.push_back({std::cos(t) * 1.1F, rise, std::sin(t) * 1.1F, 0, 0, -1, color, 0, 0, 0});
    }
    on.draw(SVGA3D_PRIMITIVE_POINTLIST, 400, points);
}

// Depth is cleared behind each window, so that each sphere meets no other's.
void draw_scissor(studio& on)
{
    tiles(on);
    on.set({{SVGA3D_RS_SCISSORTESTENABLE, 1}});
    for (uint32_t i = 0; i < 4; ++i) {
        const uint32_t w = on.width() / 2, h = on.height() / 2, gap = on.width() / 40;
        on.commands().set_scissor_rect({i % 2 * w + gap, i / 2 * h + gap, w - 2 * gap, h - 2 * gap});
        on.place(0.5F * static_cast<float>(i));
        on.sphere();
        on.commands().clear(SVGA3D_CLEAR_DEPTH, 0, 1, 0, {0, 0, on.width(), on.height()});
    }
}

tools::picture draw_in_studio(const client::connection& server, uint32_t width, uint32_t height,
                              void (*scene)(studio& on))
{
    studio on{server, width, height};
    scene(on);
    return on.finish();
}

} // namespace kalix::demo

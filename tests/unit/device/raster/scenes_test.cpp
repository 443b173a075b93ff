// Whole scenes, and the hashes of their pictures: the same bytes for every number of threads, instruction set,
// compiler and machine.
//
// A hash that changes says that pictures changed; the scene's picture is written to SCENE_DIR when that is set.

#include "device/raster/numeric.h"
#include "device/raster/processor.h"
#include "tests/unit/device/raster/scene.h"
#include "tools/picture/picture.h"

namespace kalix::device::test {
namespace {

constexpr uint32_t width = 200;
constexpr uint32_t height = 150;

float cosine(double angle)
{
    return static_cast<float>(raster::cos_of(angle)); // the C library's differ between machines
}
float sine(double angle)
{
    return cosine(angle - 1.5707963267948966);
}

class SceneTest : public scene {
protected:
    // A scene begins black, far away, with a perspective that looks along z at a world that is turned.
    void begin()
    {
        state = new_context(1);
        make_targets(width, height);
        clear(0xFF101820);
        with({{SVGA3D_RS_ZENABLE, 1}, {SVGA3D_RS_ZFUNC, SVGA3D_CMP_LESSEQUAL}});
        state.transforms[SVGA3D_TRANSFORM_PROJECTION] = {1.8f, 0, 0, 0, 0, 2.4f, 0, 0, 0, 0, 1.25f, 1, 0, 0, -1.25f, 0};
        state.transforms[SVGA3D_TRANSFORM_VIEW] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 3, 1};
        const float c = cosine(0.7), s = sine(0.7);
        state.transforms[SVGA3D_TRANSFORM_WORLD] = {c, 0,     -s, 0, 0.3f * s, 0.95f, 0.3f * c, 0,
                                                    s, -0.3f, c,  0, 0,        0,     0,        1};
    }

    SceneTest& with(std::initializer_list<std::pair<uint32_t, uint32_t>> states)
    {
        for (const auto& [which, value] : states)
            set(which, value);
        return *this;
    }

    // A sphere of bands, as indexed triangles.
    SceneTest& sphere(float radius = 1)
    {
        constexpr uint32_t bands = 12, across = 2 * bands + 1;
        std::vector<lit_corner> list;
        std::vector<uint16_t> order;
        for (uint32_t j = 0; j <= bands; ++j)
            for (uint32_t i = 0; i <= 2 * bands; ++i) {
                const double down = 3.14159265358979 * j / bands, around = 3.14159265358979 * i / bands;
                const float x = sine(down) * cosine(around), y = cosine(down), z = sine(down) * sine(around);
                const uint32_t color = 0xFF000000 | (i * 10 % 256) << 16 | (j * 20 % 256) << 8 | (255 - i * 9 % 256);
                list.push_back({radius * x, radius * y, radius * z, x, y, z, color, 0xFF202020,
                                static_cast<float>(i) / static_cast<float>(bands),
                                static_cast<float>(j) / static_cast<float>(bands), z});
                const uint32_t at = j * across + i;
                if (j < bands && i < 2 * bands)
                    for (const uint32_t index : {at, at + 1, at + across + 1, at, at + across + 1, at + across})
                        order.push_back(static_cast<uint16_t>(index));
            }
        EXPECT_EQ(draw_lit(SVGA3D_PRIMITIVE_TRIANGLELIST, static_cast<uint32_t>(order.size() / 3), list, order),
                  draw_result::done);
        return *this;
    }

    SceneTest& light()
    {
        with({{SVGA3D_RS_LIGHTINGENABLE, 1},
              {SVGA3D_RS_SPECULARENABLE, 1},
              {SVGA3D_RS_NORMALIZENORMALS, 1},
              {SVGA3D_RS_AMBIENT, 0xFF303030}});
        state.materials[0] = {{0.8f, 0.6f, 0.3f, 1}, {1, 1, 1, 1}, {1, 1, 1, 1}, {0, 0, 0, 0}, 12};
        state.light_enabled[0] = state.light_enabled[1] = true;
        svga3d_light& sun = state.lights[0];
        sun.type = SVGA3D_LIGHTTYPE_DIRECTIONAL;
        sun.diffuse = sun.specular = {1, 1, 1, 1};
        sun.direction[0] = 0.5f;
        sun.direction[2] = 1;
        svga3d_light& spot = state.lights[1];
        spot.type = SVGA3D_LIGHTTYPE_SPOT1;
        spot.diffuse = {0.9f, 0.1f, 0.1f, 1};
        std::ranges::copy(std::array{2.0f, 1.0f, 0.0f, 1.0f}, spot.position);
        std::ranges::copy(std::array{-1.0f, -0.5f, 1.0f, 0.0f}, spot.direction);
        spot.range = 9;
        spot.falloff = spot.attenuation0 = 1;
        spot.theta = 0.5f;
        spot.phi = 1.2f;
        return *this;
    }

    SceneTest& checked(uint32_t filter)
    {
        std::vector<uint32_t> texels(16 * 16);
        for (uint32_t i = 0; i < texels.size(); ++i)
            texels[i] = (i / 2 + i / 32) % 2 ? 0xFFE0E0C0 : 0x80305070 + i;
        texture(16, 16, texels, filter);
        stage(0, SVGA3D_TS_COLOROP, SVGA3D_TC_MODULATE);
        stage(0, SVGA3D_TS_COLORARG2, SVGA3D_TA_DIFFUSE);
        set_address(SVGA3D_TEX_ADDRESS_WRAP);
        return *this;
    }

    // Levels of one colour each, so that it shows which are taken.
    SceneTest& levels()
    {
        checked(SVGA3D_TEX_FILTER_LINEAR);
        texture_of(1, {{64, 64, 1}, {32, 32, 1}, {16, 16, 1}, {8, 8, 1}, {4, 4, 1}, {2, 2, 1}, {1, 1, 1}},
                   SVGA3D_TEX_FILTER_LINEAR,
                   [](uint32_t, uint32_t level, uint32_t) { return 0xFF000000 | (level + 1) * 0x35A71D; });
        stage(0, SVGA3D_TS_MIPFILTER, SVGA3D_TEX_FILTER_LINEAR);
        return *this;
    }

    // A repeated texture over a rectangle that is cut on three sides, and the same one turned over.
    SceneTest& pictures(uint32_t filter)
    {
        checked(filter);
        set(SVGA3D_RS_ZENABLE, 0);
        stage(0, SVGA3D_TS_COLOROP, SVGA3D_TC_SELECTARG1);
        EXPECT_EQ(quad(-10.5f, -5.25f, 230, 100, ~0u, 1.6f, 1.3f), draw_result::done);
        EXPECT_EQ(quad(20, 60, 33, 140, ~0u, -2.5f, -1), draw_result::done);
        return *this;
    }

    SceneTest& volume()
    {
        texture_of(1, {{8, 8, 8}}, SVGA3D_TEX_FILTER_LINEAR,
                   [](uint32_t, uint32_t, uint32_t at) { return 0xFF000000 | at * 0x123457; });
        stage(0, SVGA3D_TS_ALPHAARG1, SVGA3D_TA_DIFFUSE);
        return *this;
    }

    SceneTest& cut()
    {
        set(SVGA3D_RS_CLIPPLANEENABLE, 3);
        state.clip_planes[0] = {1, 0.2f, 0, 0.2f};
        state.clip_planes[1] = {0, 1, 0.3f, 0.1f};
        return *this;
    }

    // A second stage: what the first one gives and the factor, centred.
    SceneTest& second_stage()
    {
        stage(1, SVGA3D_TS_COLOROP, SVGA3D_TC_ADDSIGNED);
        stage(1, SVGA3D_TS_COLORARG1, SVGA3D_TA_PREVIOUS);
        stage(1, SVGA3D_TS_COLORARG2, SVGA3D_TA_CONSTANT);
        return with({{SVGA3D_RS_TEXTUREFACTOR, 0xFF806040}});
    }

    SceneTest& blended()
    {
        set_blend(SVGA3D_BLENDOP_SRCALPHA, SVGA3D_BLENDOP_INVSRCALPHA);
        return *this;
    }

    uint64_t hash()
    {
        uint64_t value = 0xCBF29CE484222325;
        for (const uint32_t sid : {color_sid, depth_sid})
            for (const std::byte each : bytes(sid))
                value = (value ^ std::to_integer<uint8_t>(each)) * 0x100000001B3;
        return value;
    }

public:
    struct row {
        const char* name;
        void (*draw)(SceneTest& in);
        uint64_t hash;
    };
    static const std::vector<row> rows;
};

constexpr uint32_t nearest = SVGA3D_TEX_FILTER_NEAREST, linear = SVGA3D_TEX_FILTER_LINEAR;

const std::vector<SceneTest::row> SceneTest::rows = {
    {"colours", [](SceneTest& in) { in.sphere(); }, 0x32B1891637FD1C80},
    {"light", [](SceneTest& in) { in.light().sphere(); }, 0xEC92D39B758A3DE2},
    {"flat-light",
     [](SceneTest& in) {
         in.light().with({{SVGA3D_RS_SHADEMODE, SVGA3D_SHADEMODE_FLAT}}).sphere();
     },
     0xC18840F25E3501E2},
    {"nearest", [](SceneTest& in) { in.checked(nearest).sphere(); }, 0x3CA905568FB88118},
    {"linear", [](SceneTest& in) { in.checked(linear).sphere(); }, 0xA71B128D85061143},
    {"levels", [](SceneTest& in) { in.levels().sphere(); }, 0x4007FD50C57B2602},
    {"stages",
     [](SceneTest& in) {
         in.checked(linear)
             .with({{SVGA3D_RS_ALPHATESTENABLE, 1},
                    {SVGA3D_RS_ALPHAFUNC, SVGA3D_CMP_GREATER},
                    {SVGA3D_RS_ALPHAREF, bits(0.6f)},
                    {SVGA3D_RS_COLORWRITEENABLE, 1 | 4 | 8}})
             .second_stage()
             .sphere();
     },
     0x49D850245B157AD8},
    {"volume", [](SceneTest& in) { in.volume().sphere(); }, 0x1F3839EA87764347},
    {"fog",
     [](SceneTest& in) {
         in.with({{SVGA3D_RS_FOGENABLE, 1},
                  {SVGA3D_RS_FOGMODE, 2 | 2 << 8}, // exp2, per pixel
                  {SVGA3D_RS_FOGCOLOR, 0xFF8090A0},
                  {SVGA3D_RS_FOGDENSITY, bits(0.35f)}})
             .sphere();
     },
     0x7998BF4FE34C6BA8},
    {"glass",
     [](SceneTest& in) {
         in.checked(linear).sphere(0.6f).blended().with({{SVGA3D_RS_ZWRITEENABLE, 0}}).sphere();
     },
     0x51EB1B4091855162},
    {"cut", [](SceneTest& in) { in.cut().light().sphere(); }, 0x1F31AB573E0E8658},
    {"wires",
     [](SceneTest& in) {
         in.with({{SVGA3D_RS_FILLMODE, SVGA3D_FILLMODE_LINE}}).sphere();
     },
     0x1AE8B262A4EE5668},
    {"points",
     [](SceneTest& in) {
         in.with({{SVGA3D_RS_FILLMODE, SVGA3D_FILLMODE_POINT},
                  {SVGA3D_RS_POINTSPRITEENABLE, 1},
                  {SVGA3D_RS_POINTSCALEENABLE, 1},
                  {SVGA3D_RS_POINTSCALE_A, 0},
                  {SVGA3D_RS_POINTSCALE_C, bits(1)},
                  {SVGA3D_RS_POINTSIZE, bits(0.12f)},
                  {SVGA3D_RS_POINTSIZEMAX, bits(64)}})
             .checked(linear)
             .sphere();
     },
     0xB151D013531E332D},
    {"stencil",
     [](SceneTest& in) {
         in.with({{SVGA3D_RS_STENCILENABLE, 1}, {SVGA3D_RS_STENCILPASS, SVGA3D_STENCILOP_INCR}})
             .sphere(0.7f)
             .with({{SVGA3D_RS_STENCILFUNC, SVGA3D_CMP_EQUAL}, {SVGA3D_RS_STENCILREF, 0}})
             .sphere();
     },
     0xCD3D974380C6A382},
    {"pictures", [](SceneTest& in) { in.pictures(nearest); }, 0x34B71AD0A3EB692D},
    {"filtered-pictures", [](SceneTest& in) { in.pictures(linear); }, 0xE70DCB5CDCB4214B},
    {"blended-pictures", [](SceneTest& in) { in.blended().pictures(nearest); }, 0x0DC57623FF4B7A94},
};

TEST_F(SceneTest, HashesStand)
{
    const std::vector<int64_t> sets = raster::instruction_sets();
    for (const uint32_t threads : {1u, 2u, 4u})
        for (const int64_t set : sets) {
            raster::force_instruction_set(set);
            raster::worker_pool pool{threads, start_thread};
            workers = &pool;
            for (const row& each : rows) {
                begin();
                each.draw(*this);
                EXPECT_EQ(hash(), each.hash) << each.name << " with " << threads << " threads and "
                                             << raster::instruction_set_name(set) << ": 0x" << std::hex << hash();
                if (const char* const directory = std::getenv("SCENE_DIR"))
                    tools::write_png({width, height, copy_of(color_sid)},
                                     std::string{directory} + "/" + each.name + ".png");
            }
            workers = nullptr;
        }
    raster::force_instruction_set(0);
}

} // namespace
} // namespace kalix::device::test

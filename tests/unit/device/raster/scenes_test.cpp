// Whole scenes, and the hashes of their pictures: the same bytes for every number of threads, instruction set,
// compiler and machine.
//
// A hash that changes says that pictures changed; the scene's picture is written to SCENE_DIR when that is set.

#include "device/raster/numeric.h"
#include "device/raster/processor.h"
#include "device/raster/workers.h"
#include "tests/unit/device/raster/scene.h"

#include <fstream>
#include <memory>
#include <thread>

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
    // A scene begins black, far away, with a perspective that looks along z.
    void begin()
    {
        state = new_context(1);
        make_targets(width, height);
        clear(0xFF101820);
        set(SVGA3D_RS_ZENABLE, 1);
        set(SVGA3D_RS_ZFUNC, SVGA3D_CMP_LESSEQUAL);
        state.transforms[SVGA3D_TRANSFORM_PROJECTION] = {1.8f, 0, 0, 0, 0, 2.4f, 0, 0, 0, 0, 1.25f, 1, 0, 0, -1.25f, 0};
        state.transforms[SVGA3D_TRANSFORM_VIEW] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 3, 1};
    }

    void turn(double angle)
    {
        const float c = cosine(angle), s = sine(angle);
        state.transforms[SVGA3D_TRANSFORM_WORLD] = {c, 0,     -s, 0, 0.3f * s, 0.95f, 0.3f * c, 0,
                                                    s, -0.3f, c,  0, 0,        0,     0,        1};
    }

    // A sphere of bands, as indexed triangles.
    void sphere(float radius = 1, uint32_t bands = 12)
    {
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
            }
        const uint32_t across = 2 * bands + 1;
        for (uint32_t j = 0; j < bands; ++j)
            for (uint32_t i = 0; i < 2 * bands; ++i) {
                const uint32_t at = j * across + i;
                for (const uint32_t index : {at, at + 1, at + across + 1, at, at + across + 1, at + across})
                    order.push_back(static_cast<uint16_t>(index));
            }
        draw_mesh(SVGA3D_PRIMITIVE_TRIANGLELIST, static_cast<uint32_t>(order.size() / 3), list, order);
    }

    void draw_mesh(uint32_t type, uint32_t primitives, const std::vector<lit_corner>& list,
                   const std::vector<uint16_t>& order)
    {
        ASSERT_EQ(draw_lit(type, primitives, list, order), draw_result::done);
    }

    void light()
    {
        set(SVGA3D_RS_LIGHTINGENABLE, 1);
        set(SVGA3D_RS_SPECULARENABLE, 1);
        set(SVGA3D_RS_NORMALIZENORMALS, 1);
        set(SVGA3D_RS_AMBIENT, 0xFF303030);
        state.materials[0] = {{0.8f, 0.6f, 0.3f, 1}, {1, 1, 1, 1}, {1, 1, 1, 1}, {0, 0, 0, 0}, 12};
        state.light_enabled[0] = state.light_enabled[1] = true;
        state.lights[0].type = SVGA3D_LIGHTTYPE_DIRECTIONAL;
        state.lights[0].diffuse = state.lights[0].specular = {1, 1, 1, 1};
        state.lights[0].direction[0] = 0.5f;
        state.lights[0].direction[2] = 1;
        state.lights[1] = {SVGA3D_LIGHTTYPE_SPOT1,
                           0,
                           {0.9f, 0.1f, 0.1f, 1},
                           {},
                           {},
                           {2, 1, 0, 1},
                           {-1, -0.5f, 1, 0},
                           9,
                           1,
                           1,
                           0,
                           0,
                           0.5f,
                           1.2f};
    }

    void checked(uint32_t filter)
    {
        std::vector<uint32_t> texels(16 * 16);
        for (uint32_t i = 0; i < texels.size(); ++i)
            texels[i] = (i / 2 + i / 32) % 2 ? 0xFFE0E0C0 : 0x80305070 + i;
        texture(16, 16, texels, filter);
        stage(0, SVGA3D_TS_COLOROP, SVGA3D_TC_MODULATE);
        stage(0, SVGA3D_TS_COLORARG2, SVGA3D_TA_DIFFUSE);
        for (const uint32_t name : {SVGA3D_TS_ADDRESSU, SVGA3D_TS_ADDRESSV})
            stage(0, name, SVGA3D_TEX_ADDRESS_WRAP);
    }

    // Levels of one colour each, so that it shows which are taken.
    void levels()
    {
        checked(SVGA3D_TEX_FILTER_LINEAR);
        std::vector<svga3d_size> sizes;
        for (uint32_t side = 64; side != 0; side /= 2)
            sizes.push_back({side, side, 1});
        const svga3d_surface_define definition{
            texture_sid, 0, SVGA3D_A8R8G8B8, {static_cast<uint32_t>(sizes.size()), 0, 0, 0, 0, 0}};
        ASSERT_TRUE(surfaces.define(definition, sizes));
        for (uint32_t level = 0; level < sizes.size(); ++level) {
            const image_view image = surfaces.view({texture_sid, 0, level});
            const uint32_t texel = 0xFF000000 | (level + 1) * 0x35A71D;
            for (uint64_t at = 0; at < image.byte_size(); at += 4)
                std::memcpy(image.bytes + at, &texel, 4);
        }
        stage(0, SVGA3D_TS_MIPFILTER, SVGA3D_TEX_FILTER_LINEAR);
    }

    // A repeated texture over a rectangle that is cut on three sides, and the same one turned over.
    void pictures(uint32_t filter)
    {
        checked(filter);
        set(SVGA3D_RS_ZENABLE, 0);
        stage(0, SVGA3D_TS_COLOROP, SVGA3D_TC_SELECTARG1);
        ASSERT_EQ(quad(-10.5f, -5.25f, 230, 100, ~0u, 1.6f, 1.3f), draw_result::done);
        ASSERT_EQ(quad(20, 60, 33, 140, ~0u, -2.5f, -1), draw_result::done);
    }

    void volume()
    {
        const svga3d_surface_define definition{texture_sid, 0, SVGA3D_A8R8G8B8, {1, 0, 0, 0, 0, 0}};
        const svga3d_size size{8, 8, 8};
        ASSERT_TRUE(surfaces.define(definition, {&size, 1}));
        const image_view image = view(texture_sid);
        for (uint32_t i = 0; i < 512; ++i) {
            const uint32_t texel = 0xFF000000 | i * 0x123457;
            std::memcpy(image.texel(i % 8, i / 8 % 8, i / 64), &texel, 4);
        }
        stage(0, SVGA3D_TS_BIND_TEXTURE, texture_sid);
        stage(0, SVGA3D_TS_COLORARG1, SVGA3D_TA_TEXTURE);
        stage(0, SVGA3D_TS_MAGFILTER, SVGA3D_TEX_FILTER_LINEAR);
        stage(0, SVGA3D_TS_MINFILTER, SVGA3D_TEX_FILTER_LINEAR);
    }

    uint64_t hash()
    {
        uint64_t value = 0xCBF29CE484222325;
        for (const uint32_t sid : {color_sid, depth_sid})
            for (uint64_t at = 0; at < view(sid).byte_size(); ++at)
                value = (value ^ std::to_integer<uint8_t>(view(sid).bytes[at])) * 0x100000001B3;
        return value;
    }

    void keep(const std::string& name)
    {
        const char* const directory = std::getenv("SCENE_DIR");
        if (!directory)
            return;
        std::ofstream out{std::string{directory} + "/" + name + ".ppm", std::ios::binary};
        out << "P6 " << width << " " << height << " 255\n";
        for (uint32_t y = 0; y < height; ++y)
            for (uint32_t x = 0; x < width; ++x)
                for (const unsigned shift : {16u, 8u, 0u})
                    out.put(static_cast<char>(pixel(x, y) >> shift));
    }

public:
    struct row {
        const char* name;
        void (*draw)(SceneTest& in);
        uint64_t hash;
    };
    static const std::vector<row> rows;
};

const std::vector<SceneTest::row> SceneTest::rows = {
    {"colours", [](SceneTest& in) { in.sphere(); }, 0x32B1891637FD1C80},
    {"light",
     [](SceneTest& in) {
         in.light();
         in.sphere();
     },
     0xEC92D39B758A3DE2},
    {"flat-light",
     [](SceneTest& in) {
         in.light();
         in.set(SVGA3D_RS_SHADEMODE, SVGA3D_SHADEMODE_FLAT);
         in.sphere();
     },
     0xC18840F25E3501E2},
    {"nearest",
     [](SceneTest& in) {
         in.checked(SVGA3D_TEX_FILTER_NEAREST);
         in.sphere();
     },
     0x3CA905568FB88118},
    {"linear",
     [](SceneTest& in) {
         in.checked(SVGA3D_TEX_FILTER_LINEAR);
         in.sphere();
     },
     0xA71B128D85061143},
    {"levels",
     [](SceneTest& in) {
         in.levels();
         in.sphere();
     },
     0x4007FD50C57B2602},
    {"stages",
     [](SceneTest& in) {
         in.checked(SVGA3D_TEX_FILTER_LINEAR);
         in.set(SVGA3D_RS_ALPHATESTENABLE, 1);
         in.set(SVGA3D_RS_ALPHAFUNC, SVGA3D_CMP_GREATER);
         in.set_float(SVGA3D_RS_ALPHAREF, 0.6f);
         in.set(SVGA3D_RS_COLORWRITEENABLE, 1 | 4 | 8);
         in.set(SVGA3D_RS_TEXTUREFACTOR, 0xFF806040);
         in.stage(1, SVGA3D_TS_COLOROP, SVGA3D_TC_ADDSIGNED);
         in.stage(1, SVGA3D_TS_COLORARG1, SVGA3D_TA_PREVIOUS);
         in.stage(1, SVGA3D_TS_COLORARG2, SVGA3D_TA_CONSTANT);
         in.sphere();
     },
     0x49D850245B157AD8},
    {"volume",
     [](SceneTest& in) {
         in.volume();
         in.sphere();
     },
     0x1F3839EA87764347},
    {"fog",
     [](SceneTest& in) {
         in.set(SVGA3D_RS_FOGENABLE, 1);
         in.set(SVGA3D_RS_FOGMODE, 2 | 2 << 8); // exp2, per pixel
         in.set(SVGA3D_RS_FOGCOLOR, 0xFF8090A0);
         in.set_float(SVGA3D_RS_FOGDENSITY, 0.35f);
         in.sphere();
     },
     0x7998BF4FE34C6BA8},
    {"glass",
     [](SceneTest& in) {
         in.checked(SVGA3D_TEX_FILTER_LINEAR);
         in.sphere(0.6f);
         in.set(SVGA3D_RS_BLENDENABLE, 1);
         in.set(SVGA3D_RS_SRCBLEND, SVGA3D_BLENDOP_SRCALPHA);
         in.set(SVGA3D_RS_DSTBLEND, SVGA3D_BLENDOP_INVSRCALPHA);
         in.set(SVGA3D_RS_ZWRITEENABLE, 0);
         in.sphere(1);
     },
     0x51EB1B4091855162},
    {"cut",
     [](SceneTest& in) {
         in.set(SVGA3D_RS_CLIPPLANEENABLE, 3);
         in.state.clip_planes[0] = {1, 0.2f, 0, 0.2f};
         in.state.clip_planes[1] = {0, 1, 0.3f, 0.1f};
         in.light();
         in.sphere();
     },
     0x1F31AB573E0E8658},
    {"wires",
     [](SceneTest& in) {
         in.set(SVGA3D_RS_FILLMODE, SVGA3D_FILLMODE_LINE);
         in.sphere();
     },
     0x1AE8B262A4EE5668},
    {"points",
     [](SceneTest& in) {
         in.set(SVGA3D_RS_FILLMODE, SVGA3D_FILLMODE_POINT);
         in.set(SVGA3D_RS_POINTSPRITEENABLE, 1);
         in.set(SVGA3D_RS_POINTSCALEENABLE, 1);
         in.set_float(SVGA3D_RS_POINTSCALE_A, 0);
         in.set_float(SVGA3D_RS_POINTSCALE_C, 1);
         in.set_float(SVGA3D_RS_POINTSIZE, 0.12f);
         in.set_float(SVGA3D_RS_POINTSIZEMAX, 64);
         in.checked(SVGA3D_TEX_FILTER_LINEAR);
         in.sphere();
     },
     0xB151D013531E332D},
    {"stencil",
     [](SceneTest& in) {
         in.set(SVGA3D_RS_STENCILENABLE, 1);
         in.set(SVGA3D_RS_STENCILPASS, SVGA3D_STENCILOP_INCR);
         in.sphere(0.7f);
         in.set(SVGA3D_RS_STENCILFUNC, SVGA3D_CMP_EQUAL);
         in.set(SVGA3D_RS_STENCILREF, 0);
         in.sphere(1);
     },
     0xCD3D974380C6A382},
    {"pictures", [](SceneTest& in) { in.pictures(SVGA3D_TEX_FILTER_NEAREST); }, 0x34B71AD0A3EB692D},
    {"filtered-pictures", [](SceneTest& in) { in.pictures(SVGA3D_TEX_FILTER_LINEAR); }, 0xE70DCB5CDCB4214B},
    {"blended-pictures",
     [](SceneTest& in) {
         in.set(SVGA3D_RS_BLENDENABLE, 1);
         in.set(SVGA3D_RS_SRCBLEND, SVGA3D_BLENDOP_SRCALPHA);
         in.set(SVGA3D_RS_DSTBLEND, SVGA3D_BLENDOP_INVSRCALPHA);
         in.pictures(SVGA3D_TEX_FILTER_NEAREST);
     },
     0x0DC57623FF4B7A94},
};

TEST_F(SceneTest, HashesStand)
{
    const std::vector<int64_t> sets = raster::instruction_sets();
    for (const uint32_t threads : {1u, 2u, 4u})
        for (const int64_t set : sets) {
            raster::force_instruction_set(set);
            raster::worker_pool pool{threads, [](std::function<void()> body) { return std::thread{std::move(body)}; }};
            workers = &pool;
            for (const row& each : rows) {
                begin();
                turn(0.7);
                each.draw(*this);
                EXPECT_EQ(hash(), each.hash) << each.name << " with " << threads << " threads and "
                                             << raster::instruction_set_name(set) << ": 0x" << std::hex << hash();
                keep(each.name);
            }
            workers = nullptr;
        }
    raster::force_instruction_set(0);
}

} // namespace
} // namespace kalix::device::test

// How vertices are read: every declaration type and usage, and every way to number vertices.

#include "tests/unit/device/raster/scene.h"

#include <cmath>
#include <numeric>

namespace kalix::device::test {
namespace {

class DeclarationTest : public scene {
protected:
    static constexpr uint32_t extra_sid = 20;

    DeclarationTest() { make_targets(16, 8); }

    // A point of one vertex in the target's middle, with one more element.
    draw_result point_with(const svga3d_vertex_declaration& more)
    {
        const float at[] = {8, 4, 0.5f, 1};
        define_buffer(vertex_sid, at, sizeof at);
        clear();
        state.query = {true, 0};
        return draw(
            std::array{element(SVGA3D_DECLTYPE_FLOAT4, SVGA3D_DECLUSAGE_POSITIONT, 0, {vertex_sid, 0, 0}), more},
            in_order(SVGA3D_PRIMITIVE_POINTLIST, 1));
    }
    // The element lies in a buffer of its own, with these bytes.
    draw_result point_with(uint32_t type, uint32_t usage, uint32_t index, const void* from, size_t bytes)
    {
        define_buffer(extra_sid, from, bytes);
        return point_with(element(type, usage, index, {extra_sid, 0, 0}));
    }
};

// ---- Types --------------------------------------------------------------------------------------------

struct type_row {
    uint32_t type;
    std::vector<uint32_t> words;
    std::array<double, 4> values;
};

const type_row type_rows[] = {
    {SVGA3D_DECLTYPE_FLOAT1, {bits(0.25f)}, {0.25, 0, 0, 1}},
    {SVGA3D_DECLTYPE_FLOAT2, {bits(-3), bits(2.5f)}, {-3, 2.5, 0, 1}},
    {SVGA3D_DECLTYPE_FLOAT3, {bits(1), bits(-2), bits(3)}, {1, -2, 3, 1}},
    {SVGA3D_DECLTYPE_FLOAT4, {bits(1), bits(2), bits(-3), bits(-4)}, {1, 2, -3, -4}},
    {SVGA3D_DECLTYPE_D3DCOLOR, {0x80FF3300}, {1, 0.2, 0, 128 / 255.0}},
    {SVGA3D_DECLTYPE_UBYTE4, {0xFF800201}, {1, 2, 128, 255}},
    {SVGA3D_DECLTYPE_SHORT2, {0x8000012C}, {300, -32768, 0, 1}},
    {SVGA3D_DECLTYPE_SHORT4, {0xFFFE0001, 0x7FFFFC18}, {1, -2, -1000, 32767}},
    {SVGA3D_DECLTYPE_UBYTE4N, {0x8000FF33}, {0.2, 1, 0, 128 / 255.0}},
    {SVGA3D_DECLTYPE_SHORT2N, {0x80007FFF}, {1, -1, 0, 1}},
    {SVGA3D_DECLTYPE_SHORT4N, {0xC0014000, 0x8001A000}, {16384 / 32767.0, -16383 / 32767.0, -24576 / 32767.0, -1}},
    {SVGA3D_DECLTYPE_USHORT2N, {0x8000FFFF}, {1, 32768 / 65535.0, 0, 1}},
    {SVGA3D_DECLTYPE_USHORT4N, {0x33334000, 0xFFFFCCCC}, {16384 / 65535.0, 0.2, 0.8, 1}},
    {SVGA3D_DECLTYPE_UDEC3, {3u | 200u << 10 | 1023u << 20 | 2u << 30}, {3, 200, 1023, 1}},
    {SVGA3D_DECLTYPE_DEC3N, {511u | 513u << 10 | 256u << 20}, {1, -1, 256 / 511.0, 1}},
    {SVGA3D_DECLTYPE_FLOAT16_2, {0xC5003800}, {0.5, -5, 0, 1}},
    {SVGA3D_DECLTYPE_FLOAT16_4, {0xBC003555, 0x00013C00}, {0.33325195, -1, 1, 1 / 16777216.0}},
};

// Each component, brought into a coordinate by the texture matrix: it picks a texel out of a row that says where it is.
TEST_F(DeclarationTest, TypesAreReadAsTheirNumbers)
{
    constexpr uint32_t width = 1023;
    std::vector<uint32_t> texels(width);
    std::iota(texels.begin(), texels.end(), 0xFF000000);
    texture(width, 1, texels, SVGA3D_TEX_FILTER_NEAREST);
    stage(0, SVGA3D_TS_ADDRESSU, SVGA3D_TEX_ADDRESS_WRAP); // values below 0 come from the row's end
    stage(0, SVGA3D_TS_TEXTURETRANSFORMFLAGS, 15);
    ASSERT_EQ(std::size(type_rows), SVGA3D_DECLTYPE_MAX + 0u);
    for (const type_row& row : type_rows)
        for (size_t component = 0; component < 4; ++component) {
            const double value = row.values[component];
            const double scale = 0.45 / std::max(1e-6, std::abs(value));
            matrix& by = state.transforms[SVGA3D_TRANSFORM_TEXTURE0] = {};
            by[4 * component] = static_cast<float>(scale);
            const auto drawn = [&](size_t cut) {
                return point_with(row.type, SVGA3D_DECLUSAGE_TEXCOORD, 0, row.words.data(), row.words.size() * 4 - cut);
            };
            ASSERT_EQ(drawn(0), draw_result::done);
            const double wanted = value * scale * width + (value < 0 ? width : 0);
            EXPECT_NEAR(pixel(8, 4) & 0xFFFFFF, wanted, value == 0 ? 0.5 : 1) << row.type << ' ' << component;
            ASSERT_EQ(drawn(1), draw_result::outside); // the last byte is needed
        }
    EXPECT_EQ(point_with(element(SVGA3D_DECLTYPE_MAX, SVGA3D_DECLUSAGE_TEXCOORD, 0, {extra_sid, 0, 0})),
              draw_result::bad_declaration);
}

// ---- Usages -------------------------------------------------------------------------------------------

TEST_F(DeclarationTest, UsagesGoWhereTheyBelong)
{
    const auto with_color = [this](uint32_t usage, uint32_t index, uint32_t word) {
        EXPECT_EQ(point_with(SVGA3D_DECLTYPE_D3DCOLOR, usage, index, &word, sizeof word), draw_result::done);
        return pixel(8, 4);
    };
    EXPECT_EQ(with_color(SVGA3D_DECLUSAGE_COLOR, 0, 0x12345678), 0x12345678u);
    set(SVGA3D_RS_SPECULARENABLE, 1);
    EXPECT_EQ(with_color(SVGA3D_DECLUSAGE_COLOR, 0, 0x12345678), 0x12345678u); // specular is 0 unless declared
    stage(0, SVGA3D_TS_COLORARG1, SVGA3D_TA_SPECULAR);
    set(SVGA3D_RS_SPECULARENABLE, 0);
    EXPECT_EQ(with_color(SVGA3D_DECLUSAGE_COLOR, 1, 0x12345678), 0xFF345678u);
    stage(0, SVGA3D_TS_COLORARG1, SVGA3D_TA_DIFFUSE);
    // Fog by vertex: what is declared is the share of the colour.
    set(SVGA3D_RS_FOGENABLE, 1);
    set(SVGA3D_RS_FOGMODE, 4 | 1 << 8);
    EXPECT_EQ(with_color(SVGA3D_DECLUSAGE_FOG, 0, 0x00400000), 0xFF404040u);
    EXPECT_EQ(with_color(SVGA3D_DECLUSAGE_TANGENT, 0, 0), ~0u); // undeclared: no fog
    set(SVGA3D_RS_FOGENABLE, 0);
    const float size = 5;
    EXPECT_EQ(point_with(SVGA3D_DECLTYPE_FLOAT1, SVGA3D_DECLUSAGE_PSIZE, 0, &size, sizeof size), draw_result::done);
    EXPECT_EQ(state.query.samples, 25u);
    // What nothing reads changes nothing, wherever it lies.
    for (const uint32_t usage : {SVGA3D_DECLUSAGE_BLENDWEIGHT, SVGA3D_DECLUSAGE_BLENDINDICES, SVGA3D_DECLUSAGE_TANGENT,
                                 SVGA3D_DECLUSAGE_BINORMAL, SVGA3D_DECLUSAGE_DEPTH}) {
        EXPECT_EQ(point_with(element(SVGA3D_DECLTYPE_FLOAT4, usage, 0, {777, 0, 0})), draw_result::done) << usage;
        EXPECT_EQ(pixel(8, 4), ~0u);
    }
    EXPECT_EQ(point_with(element(SVGA3D_DECLTYPE_FLOAT4, SVGA3D_DECLUSAGE_COLOR, 2, {777, 0, 0})), draw_result::done);
    EXPECT_EQ(point_with(element(SVGA3D_DECLTYPE_FLOAT4, SVGA3D_DECLUSAGE_COLOR, 1, {777, 0, 0})),
              draw_result::outside);
}

// Eight sets of coordinates, and a stage takes the one that its state names.
TEST_F(DeclarationTest, StagesNameTheirCoordinates)
{
    texture(8, 1, {10, 11, 12, 13, 14, 15, 16, 17}, SVGA3D_TEX_FILTER_NEAREST);
    for (uint32_t set_index = 0; set_index < 8; ++set_index) {
        const float s = (static_cast<float>(set_index) + 0.5f) / 8;
        const auto with = [&](uint32_t named) {
            stage(0, SVGA3D_TS_TEXCOORDINDEX, named);
            EXPECT_EQ(point_with(SVGA3D_DECLTYPE_FLOAT1, SVGA3D_DECLUSAGE_TEXCOORD, set_index, &s, sizeof s),
                      draw_result::done);
            return pixel(8, 4);
        };
        EXPECT_EQ(with(set_index), 10 + set_index);
        EXPECT_EQ(with((set_index + 1) % 8), 10u); // not declared: 0
    }
}

TEST_F(DeclarationTest, APositionIsNeeded)
{
    define(extra_sid, SVGA3D_BUFFER, 64, 1);
    for (const auto& [usage, index] : {std::pair{SVGA3D_DECLUSAGE_COLOR, 0u}, {SVGA3D_DECLUSAGE_POSITION, 1u}})
        EXPECT_EQ(draw(std::array{element(SVGA3D_DECLTYPE_FLOAT4, usage, index, {extra_sid, 0, 0})},
                       in_order(SVGA3D_PRIMITIVE_POINTLIST, 1)),
                  draw_result::bad_declaration);
}

// ---- Numbers ------------------------------------------------------------------------------------------

// Vertex i is a point in column i; vertices and indices lie in one buffer, the indices at an odd byte.
class IndexTest : public DeclarationTest {
protected:
    static constexpr uint32_t vertices = 16, indices_at = vertices * 16 + 1;

    // Draws one point for each index; the columns that were drawn, as bits.
    uint32_t columns(svga3d_primitive_range range, const std::vector<uint8_t>& index_bytes, draw_result wanted)
    {
        std::vector<uint8_t> bytes(indices_at);
        for (uint32_t i = 0; i < vertices; ++i) {
            const float vertex[] = {static_cast<float>(i), 4, 0.5f, 1};
            std::memcpy(bytes.data() + i * sizeof vertex, vertex, sizeof vertex);
        }
        bytes.insert(bytes.end(), index_bytes.begin(), index_bytes.end());
        define_buffer(vertex_sid, bytes.data(), bytes.size());
        clear();
        const auto position = element(SVGA3D_DECLTYPE_FLOAT4, SVGA3D_DECLUSAGE_POSITIONT, 0, {vertex_sid, 0, 16});
        EXPECT_EQ(draw({&position, 1}, range), wanted);
        uint32_t drawn = 0;
        for (uint32_t x = 0; x < 16; ++x)
            drawn |= (pixel(x, 4) != 0 ? 1u : 0u) << x;
        return drawn;
    }
};

TEST_F(IndexTest, WidthsStridesAndBias)
{
    struct row {
        const char* name;
        uint32_t width, stride;
        int32_t bias;
        uint32_t count;
        std::vector<uint8_t> bytes;
        draw_result result;
        uint32_t columns;
    };
    constexpr auto done = draw_result::done;
    constexpr auto outside = draw_result::outside;
    const row rows[] = {
        {"bytes", 1, 0, 0, 3, {0, 5, 15}, done, 0x8021},
        {"bytes, their width as stride", 1, 1, 0, 3, {0, 5, 15}, done, 0x8021},
        {"bytes, three apart", 1, 3, 0, 2, {1, 9, 9, 2}, done, 0x0006},
        {"bytes and a bias", 1, 0, 3, 2, {0, 4}, done, 0x0088},
        {"bytes and a bias back", 1, 0, -2, 2, {2, 4}, done, 0x0005},
        {"halves", 2, 0, 0, 2, {3, 0, 14, 0}, done, 0x4008},
        {"halves and a large bias back", 2, 2, -256, 2, {2, 1, 4, 1}, done, 0x0014},
        {"words", 4, 0, 0, 2, {1, 0, 0, 0, 2, 0, 0, 0}, done, 0x0006},
        {"words and the largest bias back", 4, 4, INT32_MIN, 1, {7, 0, 0, 0x80}, done, 0x0080},
        {"words and a bias", 4, 4, 15, 1, {0, 0, 0, 0}, done, 0x8000},
        {"one more than there are bytes", 1, 0, 0, 3, {0, 5}, outside, 0},
        {"half of a half", 2, 0, 0, 2, {3, 0, 14}, outside, 0},
        {"a stride past the end", 4, 5, 0, 2, {1, 0, 0, 0, 2, 0, 0, 0}, outside, 0},
        {"before the first vertex", 2, 0, -3, 2, {5, 0, 2, 0}, outside, 0},
        {"an index too far", 1, 0, 0, 3, {0, 22, 15}, outside, 0},
        {"a bias too far", 1, 0, 22, 1, {0}, outside, 0},
        {"three bytes", 3, 0, 0, 1, {0, 0, 0}, draw_result::bad_range, 0},
        {"no bytes", 0, 0, 0, 1, {0, 0, 0}, draw_result::bad_range, 0},
        {"eight bytes", 8, 0, 0, 1, {0, 0, 0, 0, 0, 0, 0, 0}, draw_result::bad_range, 0},
    };
    for (const row& each : rows) {
        SCOPED_TRACE(each.name);
        const svga3d_primitive_range range{
            SVGA3D_PRIMITIVE_POINTLIST, each.count, {vertex_sid, indices_at, each.stride}, each.width, each.bias};
        EXPECT_EQ(columns(range, each.bytes, each.result), each.columns);
    }
    // Without indices: vertex i + bias.
    EXPECT_EQ(columns(in_order(SVGA3D_PRIMITIVE_POINTLIST, 2, 9), {}, done), 0x0600u);
}

} // namespace
} // namespace kalix::device::test

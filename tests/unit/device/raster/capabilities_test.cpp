// Formats: what is announced of each is drawn, and what is not is refused or without effect.

#include "tests/unit/device/raster/announced.h"

#include <cmath>

namespace kalix::device::test {
namespace {

using kalix::test::format_row;
using kalix::test::format_rows;

enum operation : uint32_t { sampled = 1, colored = 2, depth = 4, filtered = 8, cube = 16, volume = 32, blended = 64 };

// A value of 0..1 as a step of a channel, and back; what has no bits reads as 1.
double stored(double value, uint32_t bits)
{
    const double steps = (1u << bits) - 1;
    return bits == 0 ? 1 : std::floor(value * steps + 0.5) / steps;
}

class CapabilityTest : public announced_scene {
protected:
    void begin(uint32_t color = SVGA3D_A8R8G8B8, uint32_t depth = SVGA3D_Z_D24S8)
    {
        state = new_context(1);
        make_targets(16, 8, color, depth);
    }

    // Fills one block or texel after the other, from this one on.
    static void put(const image_view& image, const format_row& row, const std::vector<uint32_t>& words, uint64_t from,
                    uint64_t count)
    {
        for (uint64_t at = from; at < from + count; ++at)
            std::memcpy(image.bytes + at * row.bytes, words.data(), row.bytes);
    }

    // Half way between two colours.
    static void expect_mean(uint32_t got, uint32_t a, uint32_t b)
    {
        rgba mean;
        for (size_t i = 0; i < 4; ++i)
            mean[i] = (channel_of(a, i) + channel_of(b, i)) / 510.0;
        expect_color(got, mean, 1.01);
    }

    // The tests of one format. The texture's left half holds the first texel, the right half the second.
    void try_flat(const format_row& row, uint32_t operations)
    {
        begin();
        define_texture(row.format, 1, {8, 4, 1});
        const uint32_t across = 8 / row.side;
        for (uint32_t y = 0; y < 4 / row.side; ++y) {
            put(view(texture_sid), row, row.first, y * across, across / 2);
            put(view(texture_sid), row, row.second, y * across + across / 2, across / 2);
        }
        quad(0, 0, 8, 4);
        for (uint32_t x = 0; x < 8; ++x) // a texture that cannot be sampled is one that is not there
            EXPECT_EQ(pixel(x, 3), operations & sampled ? x < 4 ? row.first_color : row.second_color : 0xFF000000) << x;
        clear();
        show_texture(SVGA3D_TEX_FILTER_LINEAR);
        quad(0, 0, 16, 4);
        if (operations & filtered)
            expect_mean(pixel(8, 2), row.first_color, row.second_color);
        else
            EXPECT_EQ(pixel(8, 2), 0xFF000000);
    }

    void try_cube(const format_row& row)
    {
        constexpr uint32_t odd_face = 3;
        begin();
        define_texture(row.format, SVGA3D_FACES, {4, 4, 1});
        for (uint32_t face = 0; face < SVGA3D_FACES; ++face)
            put(view(texture_sid, face), row, face == odd_face ? row.second : row.first, 0, 16 / (row.side * row.side));
        constexpr float directions[SVGA3D_FACES][3] = {{1, 0, 0},  {-1, 0, 0}, {0, 1, 0},
                                                       {0, -1, 0}, {0, 0, 1},  {0, 0, -1}};
        for (uint32_t face = 0; face < SVGA3D_FACES; ++face) {
            const auto& d = directions[face];
            EXPECT_EQ(looked_up(d[0], d[1], d[2]), face == odd_face ? row.second_color : row.first_color) << face;
        }
    }

    void try_volume(const format_row& row, bool filters)
    {
        begin();
        define_texture(row.format, 1, {4, 4, 2});
        const uint32_t slice = 16 / (row.side * row.side);
        put(view(texture_sid), row, row.first, 0, slice);
        put(view(texture_sid), row, row.second, slice, slice);
        EXPECT_EQ(looked_up(0.5f, 0.5f, 0.25f), row.first_color);
        EXPECT_EQ(looked_up(0.5f, 0.5f, 0.75f), row.second_color);
        show_texture(SVGA3D_TEX_FILTER_LINEAR);
        if (filters)
            expect_mean(looked_up(0.5f, 0.5f, 0.5f), row.first_color, row.second_color);
    }

    void try_color_target(const format_row& row, bool blends)
    {
        ASSERT_TRUE(row.written[0].bits != 0) << "a target that nothing is known of";
        constexpr uint32_t source = 0x80C04020, destination = 0x40204080;
        begin(row.format);
        clear(row.first_color);
        EXPECT_EQ(pixel(8, 4), row.first[0]);
        clear(row.second_color);
        quad(0, 0, 16, 8, row.first_color);
        EXPECT_EQ(pixel(8, 4), row.first[0]);
        for (const bool blending : {false, true}) {
            set_blend(SVGA3D_BLENDOP_SRCALPHA, SVGA3D_BLENDOP_INVSRCALPHA);
            set(SVGA3D_RS_BLENDENABLE, blending);
            clear(destination);
            quad(0, 0, 16, 8, source);
            for (size_t i = 0; i < 4; ++i) {
                const auto& [shift, bits] = row.written[i];
                const double largest = (1u << bits) - 1, alpha = 128 / 255.0;
                // The fourth byte of X8R8G8B8 is written, but reads as 1.
                const uint32_t read_bits = row.format == SVGA3D_X8R8G8B8 && i == 3 ? 0 : bits;
                const double below = stored(channel_of(destination, i) / 255.0, read_bits);
                const double drawn = channel_of(source, i) / 255.0;
                const double wanted = blending && blends ? drawn * alpha + below * (1 - alpha) : drawn;
                EXPECT_NEAR(pixel(8, 4) >> shift & ((1u << bits) - 1), wanted * largest, 0.51) << i << blending;
            }
        }
        set(SVGA3D_RS_BLENDENABLE, 0);
        for (uint32_t mask = 0; mask < 16; ++mask) { // the bits of its channels, and no others
            set(SVGA3D_RS_COLORWRITEENABLE, mask);
            clear(destination);
            uint32_t wanted = pixel(8, 4);
            quad(0, 0, 16, 8);
            for (size_t i = 0; i < 4; ++i)
                wanted |= mask >> i & 1 ? ((1u << row.written[i].bits) - 1) << row.written[i].shift : 0;
            EXPECT_EQ(pixel(8, 4), wanted) << mask;
        }
    }

    // What has no word of operations is drawn to, all but a luminance.
    void try_wide_target(const format_row& row)
    {
        if (row.format == SVGA3D_LUMINANCE4_ALPHA4)
            return try_no_color_target(row);
        begin(row.format);
        for (const bool drawn : {false, true}) {
            clear(drawn ? row.second_color : row.first_color);
            if (drawn)
                quad(0, 0, 16, 8, row.first_color);
            EXPECT_EQ(std::memcmp(view(color_sid).texel(8, 4), row.first.data(), row.bytes), 0) << drawn;
        }
    }

    void try_no_color_target(const format_row& row)
    {
        begin(row.format);
        state.targets[SVGA3D_RT_DEPTH] = state.targets[SVGA3D_RT_STENCIL] = {SVGA3D_INVALID_ID, 0, 0};
        const svga3d_rect all{0, 0, 16, 8};
        EXPECT_EQ(clear_targets(state, surfaces, {1, SVGA3D_CLEAR_COLOR, ~0u, 1, 0}, {&all, 1}),
                  draw_result::no_target);
        EXPECT_EQ(quad(0, 0, 16, 8), draw_result::no_target);
        EXPECT_TRUE(std::ranges::all_of(bytes(color_sid), [](std::byte each) { return each == std::byte{0}; }));
    }

    void try_depth(const format_row& row, bool is_target)
    {
        begin(SVGA3D_A8R8G8B8, row.format);
        set(SVGA3D_RS_ZENABLE, 1);
        set(SVGA3D_RS_ZFUNC, SVGA3D_CMP_NEVER);
        set(SVGA3D_RS_STENCILENABLE, 1);
        set(SVGA3D_RS_STENCILFUNC, SVGA3D_CMP_NEVER);
        quad(0, 0, 16, 8);
        EXPECT_EQ(pixel(8, 4), is_target ? 0 : ~0u); // one that is none is not there
        state.targets[SVGA3D_RT_COLOR0] = {SVGA3D_INVALID_ID, 0, 0};
        EXPECT_EQ(quad(0, 0, 16, 8), is_target ? draw_result::done : draw_result::no_target);
    }
};

TEST_F(CapabilityTest, FormatsDoWhatTheirBitsSay)
{
    uint32_t words = 0;
    for (const format_row& row : format_rows) {
        SCOPED_TRACE(row.name);
        // Formats without a word of operations are sampled in every way.
        const uint32_t operations = row.index ? value(row.index) : sampled | filtered | cube | volume;
        words += row.index != 0;
        EXPECT_EQ(operations & ~0x7Fu, 0u);
        EXPECT_TRUE(!(operations & (filtered | cube | volume)) || operations & sampled);
        try_flat(row, operations);
        if (operations & cube)
            try_cube(row);
        if (operations & volume)
            try_volume(row, operations & filtered);
        if (row.index == 0) {
            try_wide_target(row);
            continue;
        }
        if (operations & colored)
            try_color_target(row, operations & blended);
        else
            try_no_color_target(row);
        try_depth(row, operations & depth);
    }
    EXPECT_EQ(words, values_.size() - static_cast<size_t>(std::distance(values_.begin(), values_.lower_bound(32))));
    for (uint32_t i = 0; i < 3; ++i) // depth formats are announced twice
        EXPECT_EQ(value(12 + i), value(43 + i) >> 2 & 1) << i;
}

} // namespace
} // namespace kalix::device::test

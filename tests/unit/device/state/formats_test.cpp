// Formats beside each other: scaled and plain copies between them, and what they look like on the screen.

#include "tests/unit/device/state/format_rows.h"
#include "tests/unit/device/support.h"

#include <cmath>

namespace kalix::test {
namespace {

constexpr uint32_t from_sid = 1, to_sid = 2;

class FormatsTest : public device_test {
protected:
    // Defines a surface whose first row is these two texels, each as often as a block is wide.
    void define(uint32_t sid, const format_row& row)
    {
        run(stream{}.define_surface(sid, row.format, {{2 * row.side, row.side, 1}}));
        std::vector<std::byte> bytes(2 * size_t{row.bytes});
        std::memcpy(bytes.data(), row.first.data(), row.bytes);
        std::memcpy(bytes.data() + row.bytes, row.second.data(), row.bytes);
        write_surface({sid, 0, 0}, {2 * row.side, row.side, 1}, bytes);
    }
};

bool can_be_decoded(const format_row& row)
{
    return row.side == 1 && row.first_color != 0; // neither blocks nor depths
}

// Whether a pixel of a screen shows a colour, each channel to the nearest step.
bool shows(uint32_t got, uint32_t color, const channel_layout& layout)
{
    for (size_t i = 0; i < 3; ++i) {
        const uint32_t largest = (1u << layout[i].bits) - 1;
        const double wanted = channel_of(color, i) / 255.0 * largest;
        // Half a step of the channel, and half a step of the 8 bits that the table has.
        if (std::abs((got >> layout[i].shift & largest) - wanted) > 0.51 + 0.5 * largest / 255)
            return false;
    }
    return true;
}

// ---- Scaled copies ------------------------------------------------------------------------------------

TEST_F(FormatsTest, StretchesFromEveryFormat)
{
    run(stream{}.define_surface(to_sid, SVGA3D_A8R8G8B8, {{4, 1, 1}}));
    for (const format_row& row : format_rows) {
        SCOPED_TRACE(row.name);
        define(from_sid, row);
        const uint64_t before = refused(KALIX_REFUSED_NOT_SUPPORTED);
        stretch(from_sid, {0, 0, 0, 2, 1, 1}, to_sid, {0, 0, 0, 4, 1, 1}, SVGA3D_STRETCH_BLT_LINEAR);
        const std::vector<uint32_t> linear = read_words<uint32_t>(to_sid, 4, 1);
        stretch(from_sid, {0, 0, 0, 2, 1, 1}, to_sid, {0, 0, 0, 4, 1, 1}, SVGA3D_STRETCH_BLT_POINT);
        ASSERT_EQ(refused(KALIX_REFUSED_NOT_SUPPORTED) - before, can_be_decoded(row) ? 0u : 2u);
        ASSERT_EQ(all_refused(), refused(KALIX_REFUSED_NOT_SUPPORTED));
        if (!can_be_decoded(row))
            continue;
        for (size_t i = 0; i < 4; ++i) { // a quarter of the way
            const double wanted = channel_of(row.first_color, i) * 0.75 + channel_of(row.second_color, i) * 0.25;
            EXPECT_NEAR(channel_of(linear[1], i), wanted, 1.01) << i;
        }
        EXPECT_EQ(linear[0], row.first_color);
        EXPECT_EQ(read_words<uint32_t>(to_sid, 4, 1),
                  (std::vector<uint32_t>{row.first_color, row.first_color, row.second_color, row.second_color}));
    }
}

TEST_F(FormatsTest, StretchesToEveryFormat)
{
    for (const format_row& row : format_rows) {
        SCOPED_TRACE(row.name);
        for (const uint32_t mode : {SVGA3D_STRETCH_BLT_POINT, SVGA3D_STRETCH_BLT_LINEAR}) {
            run(stream{}
                    .define_surface(from_sid, SVGA3D_A8R8G8B8, {{1, 1, 1}})
                    .define_surface(to_sid, row.format, {{4, 4, 1}}));
            write_words<uint32_t>(from_sid, 1, 1, {row.first_color});
            const uint64_t before = refused(KALIX_REFUSED_NOT_SUPPORTED);
            stretch(from_sid, {0, 0, 0, 1, 1, 1}, to_sid, {0, 0, 0, 4, 4, 1}, mode);
            ASSERT_EQ(refused(KALIX_REFUSED_NOT_SUPPORTED) - before, can_be_decoded(row) ? 0u : 1u);
            const size_t count = 16 / (row.side * row.side);
            const auto got = read_surface({to_sid, 0, 0}, {4, 4, 1}, row.bytes * count);
            std::vector<std::byte> wanted(got.size());
            for (size_t i = 0; i < count && can_be_decoded(row); ++i)
                std::memcpy(wanted.data() + i * row.bytes, row.first.data(), row.bytes);
            EXPECT_EQ(got, wanted);
        }
    }
}

// Texels of one format move as they are, also where they hold no colours.
TEST_F(FormatsTest, StretchesDepthsByPoints)
{
    for (const uint32_t format : {SVGA3D_Z_D24S8, SVGA3D_V16U16}) {
        run(stream{}.define_surface(from_sid, format, {{2, 1, 1}}).define_surface(to_sid, format, {{4, 1, 1}}));
        write_words<uint32_t>(from_sid, 2, 1, {0x12345678, 0xFFEEDDCC});
        stretch(from_sid, {0, 0, 0, 2, 1, 1}, to_sid, {0, 0, 0, 4, 1, 1}, SVGA3D_STRETCH_BLT_POINT);
        EXPECT_EQ(read_words<uint32_t>(to_sid, 4, 1),
                  (std::vector<uint32_t>{0x12345678, 0x12345678, 0xFFEEDDCC, 0xFFEEDDCC}));
        EXPECT_EQ(all_refused(), format == SVGA3D_Z_D24S8 ? 0u : 1u);
        stretch(from_sid, {0, 0, 0, 2, 1, 1}, to_sid, {0, 0, 0, 4, 1, 1}, SVGA3D_STRETCH_BLT_LINEAR);
    }
    EXPECT_EQ(refused(KALIX_REFUSED_NOT_SUPPORTED), 2u);
}

// ---- Plain copies -------------------------------------------------------------------------------------

struct copy_row {
    const char* name;
    uint32_t from, to, bytes, side;
    bool is_like;
};

TEST_F(FormatsTest, CopiesBetweenLikeFormats)
{
    const copy_row rows[] = {
        {"four bytes", SVGA3D_A8R8G8B8, SVGA3D_X8R8G8B8, 4, 1, true},
        {"depths as colours", SVGA3D_Z_D24S8, SVGA3D_A8R8G8B8, 4, 1, true},
        {"colours as depths", SVGA3D_A2R10G10B10, SVGA3D_Z_D24X8, 4, 1, true},
        {"two bytes", SVGA3D_R5G6B5, SVGA3D_LUMINANCE16, 2, 1, true},
        {"one byte", SVGA3D_LUMINANCE8, SVGA3D_ALPHA8, 1, 1, true},
        {"three bytes", SVGA3D_BUMPL8V8U8, SVGA3D_BUMPL8V8U8, 3, 1, true},
        {"eight bytes", SVGA3D_A16B16G16R16, SVGA3D_ARGB_S10E5, 8, 1, true},
        {"sixteen bytes", SVGA3D_ARGB_S23E8, SVGA3D_ARGB_S23E8, 16, 1, true},
        {"small blocks", SVGA3D_DXT1, SVGA3D_DXT1, 8, 4, true},
        {"large blocks", SVGA3D_DXT3, SVGA3D_DXT5, 16, 4, true},
        {"sizes", SVGA3D_A8R8G8B8, SVGA3D_R5G6B5, 4, 1, false},
        {"blocks of two sizes", SVGA3D_DXT1, SVGA3D_DXT5, 8, 4, false},
        {"a block and a texel of as many bytes", SVGA3D_DXT1, SVGA3D_A16B16G16R16, 8, 4, false},
        {"a pair and a texel of as many bytes", SVGA3D_UYVY, SVGA3D_A8R8G8B8, 4, 1, false},
    };
    for (const copy_row& row : rows) {
        SCOPED_TRACE(row.name);
        // Two by two by two blocks; the second face's second level goes to the third face's.
        const svga3d_size size{2 * row.side, 2 * row.side, 2};
        const std::vector<svga3d_size> sizes(4, size);
        for (const auto& [sid, format] : {std::pair{from_sid, row.from}, {to_sid, row.to}})
            run(stream{}.command_with_list(SVGA_3D_CMD_SURFACE_DEFINE,
                                           svga3d_surface_define{sid, 0, format, {0, 2, 2, 0, 0, 0}}, sizes));
        std::vector<std::byte> texels(8 * size_t{row.bytes});
        for (size_t i = 0; i < texels.size(); ++i)
            texels[i] = static_cast<std::byte>(i + 1);
        write_surface({from_sid, 1, 1}, size, texels);
        const uint64_t before = refused(KALIX_REFUSED_NOT_SUPPORTED);
        // The lower right block of the first slice to the lower left one of the second.
        run(stream{}.command(SVGA_3D_CMD_SURFACE_COPY, svga3d_surface_copy{{from_sid, 1, 1}, {to_sid, 2, 1}},
                             svga3d_copy_box{0, row.side, 1, row.side, row.side, 1, row.side, row.side, 0}));
        EXPECT_EQ(refused(KALIX_REFUSED_NOT_SUPPORTED) - before, row.is_like ? 0u : 1u);
        if (!row.is_like)
            continue;
        std::vector<std::byte> wanted(texels.size());
        std::copy_n(texels.begin() + 3 * row.bytes, row.bytes, wanted.begin() + 6 * row.bytes);
        EXPECT_EQ(read_surface({to_sid, 2, 1}, size, texels.size()), wanted);
    }
    EXPECT_EQ(all_refused(), refused(KALIX_REFUSED_NOT_SUPPORTED));
}

// ---- The screen ---------------------------------------------------------------------------------------

TEST_F(FormatsTest, EveryFormatIsShownOnScreensOfEitherDepth)
{
    for (const auto& [bits, layout] : {std::pair{16u, in_565}, {32u, in_8888}})
        for (const format_row& row : format_rows) {
            SCOPED_TRACE(testing::Message() << row.name << " on " << bits);
            set_mode(8, 4, bits);
            define(from_sid, row);
            const uint64_t before = refused(KALIX_REFUSED_NOT_SUPPORTED);
            run(stream{}.command(SVGA_3D_CMD_PRESENT, svga3d_present{from_sid}, svga3d_copy_rect{1, 0, 2, 1, 0, 0}));
            run(stream{}.command(SVGA_3D_CMD_BLIT_SURFACE_TO_SCREEN,
                                 svga3d_blit_to_screen{{from_sid, 0, 0}, {0, 0, 2, 1}, 0, {2, 1, 6, 3}}));
            ASSERT_EQ(refused(KALIX_REFUSED_NOT_SUPPORTED) - before, can_be_decoded(row) ? 0u : 2u);
            const uint32_t first = can_be_decoded(row) ? row.first_color : 0;
            const uint32_t second = can_be_decoded(row) ? row.second_color : 0;
            const struct {
                uint32_t x, y, color;
            } wanted[] = {{0, 0, 0}, {1, 0, first}, {2, 0, second}, {3, 0, 0},
                          {1, 1, 0}, {3, 2, first}, {4, 2, second}, {6, 2, 0}};
            for (const auto& [x, y, color] : wanted) {
                uint32_t word = 0;
                std::memcpy(&word, view->picture() + y * view->header().pitch + x * bits / 8, bits / 8);
                EXPECT_TRUE(shows(word, color, layout)) << x << ' ' << y << std::hex << ": " << word;
            }
        }
}

} // namespace
} // namespace kalix::test

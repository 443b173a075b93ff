// Surface DMA beside a model that moves one byte at a time.

#include "tests/unit/device/support.h"

#include <algorithm>
#include <span>

namespace kalix::test {
namespace {

struct layout {
    uint32_t block_bytes = 0, block_width = 1, block_height = 1;
};

// Of every format: the bytes of a texel, or of a block and its sides.
const std::map<uint32_t, layout> layouts = [] {
    const std::pair<layout, std::vector<uint32_t>> groups[] = {
        {{1}, {SVGA3D_LUMINANCE8, SVGA3D_LUMINANCE4_ALPHA4, SVGA3D_ALPHA8, SVGA3D_BUFFER}},
        {{2},
         {SVGA3D_R5G6B5, SVGA3D_X1R5G5B5, SVGA3D_A1R5G5B5, SVGA3D_A4R4G4B4, SVGA3D_Z_D16, SVGA3D_Z_D15S1,
          SVGA3D_LUMINANCE16, SVGA3D_LUMINANCE8_ALPHA8, SVGA3D_BUMPU8V8, SVGA3D_BUMPL6V5U5, SVGA3D_V8U8, SVGA3D_CXV8U8,
          SVGA3D_R_S10E5}},
        {{3}, {SVGA3D_BUMPL8V8U8}},
        {{4},
         {SVGA3D_X8R8G8B8, SVGA3D_A8R8G8B8, SVGA3D_Z_D32, SVGA3D_Z_D24S8, SVGA3D_BUMPX8L8V8U8, SVGA3D_A2R10G10B10,
          SVGA3D_Q8W8V8U8, SVGA3D_X8L8V8U8, SVGA3D_A2W10V10U10, SVGA3D_R_S23E8, SVGA3D_RG_S10E5, SVGA3D_Z_D24X8,
          SVGA3D_V16U16, SVGA3D_G16R16}},
        {{4, 2}, {SVGA3D_UYVY, SVGA3D_YUY2}},
        {{8}, {SVGA3D_ARGB_S10E5, SVGA3D_RG_S23E8, SVGA3D_A16B16G16R16}},
        {{16}, {SVGA3D_ARGB_S23E8}},
        {{8, 4, 4}, {SVGA3D_DXT1}},
        {{16, 4, 4}, {SVGA3D_DXT2, SVGA3D_DXT3, SVGA3D_DXT4, SVGA3D_DXT5}},
    };
    std::map<uint32_t, layout> out;
    for (const auto& [of, formats] : groups)
        for (const uint32_t format : formats)
            out[format] = of;
    return out;
}();

uint32_t blocks(uint32_t texels, uint32_t block)
{
    return (texels + block - 1) / block;
}

// Guest memory and one image, both as plain bytes.
struct model {
    layout of;
    svga3d_size size;
    std::vector<std::byte> guest, host;

    uint32_t row() const { return blocks(size.width, of.block_width) * of.block_bytes; }
    uint32_t rows() const { return blocks(size.height, of.block_height); }

    bool is_whole(uint32_t first, uint32_t count, uint32_t all, uint32_t block) const
    {
        return first + count <= all && first % block == 0 && (count % block == 0 || first + count == all);
    }

    // Pairs of guest and host offsets in the order in which bytes move; false when the box is refused.
    bool list_bytes(const svga3d_surface_dma& command, const svga3d_copy_box& box,
                    std::vector<std::pair<uint64_t, uint64_t>>& out) const
    {
        if (!is_whole(box.x, box.w, size.width, of.block_width) ||
            !is_whole(box.y, box.h, size.height, of.block_height) || box.z + box.d > size.depth ||
            box.srcx % of.block_width != 0 || box.srcy % of.block_height != 0)
            return false;
        const uint64_t pitch = command.guest.pitch != 0 ? command.guest.pitch : row();
        for (uint64_t z = 0; z < box.d; ++z)
            for (uint64_t y = 0; y < blocks(box.h, of.block_height); ++y)
                for (uint64_t x = 0; x < uint64_t{blocks(box.w, of.block_width)} * of.block_bytes; ++x) {
                    const uint64_t in_guest = command.guest.pointer.offset + (box.srcz + z) * pitch * rows() +
                                              (box.srcy / of.block_height + y) * pitch +
                                              box.srcx / of.block_width * of.block_bytes + x;
                    const uint64_t in_host = (box.z + z) * row() * rows() + (box.y / of.block_height + y) * row() +
                                             box.x / of.block_width * of.block_bytes + x;
                    if (in_guest >= guest.size())
                        return false;
                    out.emplace_back(in_guest, in_host);
                }
        return true;
    }

    bool run(const svga3d_surface_dma& command, const std::vector<svga3d_copy_box>& boxes)
    {
        std::vector<std::pair<uint64_t, uint64_t>> moves;
        for (const svga3d_copy_box& box : boxes)
            if (!list_bytes(command, box, moves))
                return false;
        for (const auto& [in_guest, in_host] : moves)
            (command.transfer == SVGA3D_WRITE_HOST_VRAM ? host[in_host] : guest[in_guest]) =
                command.transfer == SVGA3D_WRITE_HOST_VRAM ? guest[in_guest] : host[in_host];
        return true;
    }
};

class DmaTest : public device_test {
protected:
    static constexpr uint32_t region = 7;
    static constexpr uint32_t region_pages = 6;

    std::byte* guest_byte(uint64_t offset) const { return scratch.page(order[offset / 4096]) + offset % 4096; }

    void define(std::mt19937& random)
    {
        order.resize(region_pages);
        for (uint32_t i = 0; i < region_pages; ++i)
            order[i] = 1 + 2 * i;
        std::shuffle(order.begin(), order.end(), random);
        run(stream{}.define_region(region, order));
    }

    // A surface of six faces, of which one has a second and a third level.
    void define_faces(uint32_t format, uint32_t face, const svga3d_size& second_level)
    {
        svga3d_surface_define definition{1, 0, format, {1, 1, 1, 1, 1, 1}};
        definition.mip_levels[face] = 3;
        std::vector<svga3d_size> sizes(8, {5, 5, 1});
        sizes[face + 1] = second_level;
        run(stream{}.command_with_list(SVGA_3D_CMD_SURFACE_DEFINE, definition, sizes));
    }

    std::vector<uint64_t> order; // page numbers of the region
};

// A side of a box: mostly inside and on block borders, at times not.
std::pair<uint32_t, uint32_t> random_side(std::mt19937& random, uint32_t size, uint32_t block)
{
    if (below(random, 40) == 0)
        return {below(random, size + 2), below(random, size + 2)};
    const uint32_t first = below(random, blocks(size, block)) * block;
    const uint32_t most = blocks(size - first, block);
    const uint32_t count = (1 + below(random, most)) * block;
    return {first, std::min(count, size - first)};
}

svga3d_copy_box random_box(std::mt19937& random, const model& in)
{
    const auto [x, w] = random_side(random, in.size.width, in.of.block_width);
    const auto [y, h] = random_side(random, in.size.height, in.of.block_height);
    const auto [z, d] = random_side(random, in.size.depth, 1);
    const bool shifted = below(random, 3) == 0;
    return {x,
            y,
            z,
            w,
            h,
            d,
            shifted ? below(random, 5) * in.of.block_width : 0,
            shifted ? below(random, 5) * in.of.block_height : 0,
            shifted ? below(random, 2) : 0};
}

svga3d_surface_dma random_transfer(std::mt19937& random, const model& in, const svga3d_image& image)
{
    const uint32_t pitches[] = {0, in.row(), in.row() + below(random, 40), 1 + below(random, in.row())};
    return {{{7, below(random, 3000)}, pitches[below(random, 4)]},
            image,
            below(random, 2) ? uint32_t{SVGA3D_WRITE_HOST_VRAM} : uint32_t{SVGA3D_READ_HOST_VRAM}};
}

TEST_F(DmaTest, MovesTheBytesThatTheModelMoves)
{
    std::mt19937 random{test_seed()};
    define(random);
    int refusals = 0;
    ASSERT_EQ(layouts.size(), SVGA3D_FORMAT_MAX - 1u);
    for (const auto& [format, of] : layouts) {
        SCOPED_TRACE(testing::Message() << "format " << format << ", seed " << test_seed());
        model expected{of, {1 + below(random, 21), 1 + below(random, 21), 1 + below(random, 3)}, {}, {}};
        expected.guest.resize(region_pages * 4096);
        for (uint64_t i = 0; i < expected.guest.size(); ++i)
            *guest_byte(i) = std::byte{0};
        expected.host.resize(size_t{expected.row()} * expected.rows() * expected.size.depth);
        // The image is a level of its own, of one of the faces, between others, which shows offsets that are wrong.
        const svga3d_image image{1, below(random, 6), 1};
        define_faces(format, image.face, expected.size);
        for (int step = 0; step < 40; ++step) {
            for (uint64_t i = 0; i < expected.guest.size(); i += 1 + below(random, 40))
                *guest_byte(i) = expected.guest[i] = static_cast<std::byte>(random());
            const svga3d_surface_dma command = random_transfer(random, expected, image);
            std::vector<svga3d_copy_box> boxes(1 + below(random, 2));
            std::ranges::generate(boxes, [&] { return random_box(random, expected); });
            const uint64_t before = refused(KALIX_REFUSED_OUTSIDE);
            const bool accepted = expected.run(command, boxes);
            refusals += !accepted;
            run(stream{}.dma(command, boxes));
            ASSERT_EQ(refused(KALIX_REFUSED_OUTSIDE) - before, accepted ? 0u : 1u) << "step " << step;
            for (uint64_t i = 0; i < expected.guest.size(); ++i)
                ASSERT_EQ(*guest_byte(i), expected.guest[i]) << "step " << step << ", guest byte " << i;
            ASSERT_EQ(read_surface(image, expected.size, expected.host.size()), expected.host) << "step " << step;
        }
    }
    EXPECT_GT(refusals, 0);
}

// As much as several threads take on: in, across, onto the screen and out again.
TEST_F(DmaTest, LargeImagesArriveWhole)
{
    constexpr uint32_t side = 256;
    std::mt19937 random{test_seed()};
    std::vector<uint32_t> texels(side * side);
    std::ranges::generate(texels, random);
    for (const uint32_t sid : {1u, 2u})
        run(stream{}.define_surface(sid, SVGA3D_X8R8G8B8, {{side, side, 1}}));
    write_words(1, side, side, texels);
    run(stream{}.command(SVGA_3D_CMD_SURFACE_COPY, svga3d_surface_copy{{1, 0, 0}, {2, 0, 0}},
                         svga3d_copy_box{0, 0, 0, side, side, 1, 0, 0, 0}));
    EXPECT_EQ(read_words<uint32_t>(2, side, side), texels);
    run(stream{}.command(SVGA_3D_CMD_PRESENT, svga3d_present{2}, svga3d_copy_rect{30, 20, side, side, 0, 0}));
    for (uint32_t i = 0; i < texels.size(); ++i)
        ASSERT_EQ(pixel(30 + i % side, 20 + i / side), texels[i]) << i;
}

// Where a page is named twice, what is written to it last stays, however much is written.
TEST_F(DmaTest, LaterRowsStayInPagesNamedTwice)
{
    constexpr uint32_t side = 256, twice = 9, count = 64; // pages
    std::mt19937 random{test_seed()};
    std::vector<uint64_t> numbers(2 * count);
    for (uint32_t i = 0; i < numbers.size(); ++i)
        numbers[i] = 1 + i % count;
    run(stream{}.define_region(twice, numbers).define_surface(1, SVGA3D_A8R8G8B8, {{side, 2 * side, 1}}));
    for (const uint32_t y : {0u, side}) {
        for (uint32_t i = 0; i < count * 4096; ++i)
            scratch.page(1)[i] = static_cast<std::byte>(random());
        run(stream{}.dma({{{twice, 0}, 0}, {1, 0, 0}, SVGA3D_WRITE_HOST_VRAM}, {{0, y, 0, side, side, 1, 0, 0, 0}}));
    }
    const std::vector<std::byte> last{scratch.page(1), scratch.page(1) + count * 4096};
    std::memset(scratch.page(1), 0, count * 4096);
    run(stream{}.dma({{{twice, 0}, 0}, {1, 0, 0}, SVGA3D_READ_HOST_VRAM}, {{0, 0, 0, side, 2 * side, 1, 0, 0, 0}}));
    EXPECT_TRUE(std::ranges::equal(last, std::span{scratch.page(1), last.size()}));
}

TEST_F(DmaTest, ReachesTheFramebufferAndTakesASuffix)
{
    run(stream{}.define_surface(1, SVGA3D_X8R8G8B8, {{2, 1, 1}}));
    write_words<uint32_t>(1, 2, 1, {0x11223344, 0x55667788});
    const uint64_t damage = view->header().damage;
    const svga3d_surface_dma command{{{SVGA_GMR_FRAMEBUFFER, 4096}, 0}, {1, 0, 0}, SVGA3D_READ_HOST_VRAM};
    run(stream{}.command(SVGA_3D_CMD_SURFACE_DMA, command, svga3d_copy_box{0, 0, 0, 2, 1, 1, 0, 0, 0},
                         svga3d_surface_dma_suffix{12, 0, 0}));
    EXPECT_EQ(pixel(0, 1), 0x11223344u);
    EXPECT_EQ(pixel(1, 1), 0x55667788u);
    EXPECT_EQ(view->header().damage, damage + 1);
    // The last pixel of the framebuffer can be written, one byte further nothing.
    for (const uint32_t extra : {0u, 1u}) {
        const auto last = static_cast<uint32_t>(framebuffer_bytes - 8 + extra);
        run(stream{}.dma({{{SVGA_GMR_FRAMEBUFFER, last}, 0}, {1, 0, 0}, SVGA3D_READ_HOST_VRAM},
                         {{0, 0, 0, 2, 1, 1, 0, 0, 0}}));
        EXPECT_EQ(refused(KALIX_REFUSED_OUTSIDE), extra);
    }
}

} // namespace
} // namespace kalix::test

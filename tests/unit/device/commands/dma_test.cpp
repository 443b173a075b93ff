// Surface DMA beside a model that moves one byte at a time.

#include "tests/unit/device/support.h"

#include <algorithm>
#include <kalix/svga3d_formats.h>
#include <span>

namespace kalix::test {
namespace {

// Guest memory and one image, both as plain bytes.
struct model {
    svga3d_block of; // by the table that clients have
    svga3d_size size;
    std::vector<std::byte> guest, host;

    uint32_t row() const { return static_cast<uint32_t>(svga3d_row_bytes(of, size.width)); }
    uint32_t rows() const { return svga3d_block_rows(of, size.height); }

    bool is_whole(uint32_t first, uint32_t count, uint32_t all, uint32_t block) const
    {
        return first + count <= all && first % block == 0 && (count % block == 0 || first + count == all);
    }

    // Pairs of guest and host offsets in the order in which bytes move; false when the box is refused.
    bool list_bytes(const svga3d_surface_dma& command, const svga3d_copy_box& box,
                    std::vector<std::pair<uint64_t, uint64_t>>& out) const
    {
        if (!is_whole(box.x, box.w, size.width, of.width) || !is_whole(box.y, box.h, size.height, of.height) ||
            box.z + box.d > size.depth || box.srcx % of.width != 0 || box.srcy % of.height != 0)
            return false;
        const uint64_t pitch = command.guest.pitch != 0 ? command.guest.pitch : row();
        for (uint64_t z = 0; z < box.d; ++z)
            for (uint64_t y = 0; y < svga3d_block_rows(of, box.h); ++y)
                for (uint64_t x = 0; x < svga3d_row_bytes(of, box.w); ++x) {
                    const uint64_t in_guest = command.guest.pointer.offset + (box.srcz + z) * pitch * rows() +
                                              (box.srcy / of.height + y) * pitch + box.srcx / of.width * of.bytes + x;
                    const uint64_t in_host = (box.z + z) * row() * rows() + (box.y / of.height + y) * row() +
                                             box.x / of.width * of.bytes + x;
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

    std::byte* guest_byte(uint64_t offset) const { return scratch.page(order[offset / 4096]) + offset % 4096; }

    // A surface of six faces, of which one has a second and a third level.
    void define_faces(uint32_t format, uint32_t face, const svga3d_size& second_level)
    {
        svga3d_surface_define definition{1, 0, format, {1, 1, 1, 1, 1, 1}};
        definition.mip_levels[face] = 3;
        std::vector<svga3d_size> sizes(8, {5, 5, 1});
        sizes[face + 1] = second_level;
        run(stream{}.command_with_list(SVGA_3D_CMD_SURFACE_DEFINE, definition, sizes));
    }

    const std::vector<uint64_t> order{9, 1, 11, 5, 3, 7}; // page numbers of the region
};

// A side of a box: mostly inside and on block borders, at times not.
std::pair<uint32_t, uint32_t> random_side(dice& random, uint32_t size, uint32_t block)
{
    if (random.below(40) == 0)
        return {random.below(size + 2), random.below(size + 2)};
    const auto blocks = [block](uint32_t texels) { return (texels + block - 1) / block; };
    const uint32_t first = random.below(blocks(size)) * block;
    const uint32_t count = (1 + random.below(blocks(size - first))) * block;
    return {first, std::min(count, size - first)};
}

svga3d_copy_box random_box(dice& random, const model& in)
{
    const auto [x, w] = random_side(random, in.size.width, in.of.width);
    const auto [y, h] = random_side(random, in.size.height, in.of.height);
    const auto [z, d] = random_side(random, in.size.depth, 1);
    const uint32_t shift = random.below(3) == 0 ? 1 : 0;
    return {x,
            y,
            z,
            w,
            h,
            d,
            shift * random.below(5) * in.of.width,
            shift * random.below(5) * in.of.height,
            shift * random.below(2)};
}

svga3d_surface_dma random_transfer(dice& random, const model& in, const svga3d_image& image)
{
    const uint32_t pitches[] = {0, in.row(), in.row() + random.below(40), 1 + random.below(in.row())};
    return {{{7, random.below(3000)}, pitches[random.below(4)]},
            image,
            random.one_of<uint32_t>({SVGA3D_WRITE_HOST_VRAM, SVGA3D_READ_HOST_VRAM})};
}

TEST_F(DmaTest, MovesTheBytesThatTheModelMoves)
{
    dice random;
    run(stream{}.define_region(region, order));
    int refusals = 0;
    for (uint32_t format = 1; format < SVGA3D_FORMAT_MAX; ++format) {
        SCOPED_TRACE(testing::Message() << "format " << format);
        model expected{
            svga3d_block_of(format), {1 + random.below(21), 1 + random.below(21), 1 + random.below(3)}, {}, {}};
        expected.guest.resize(order.size() * 4096);
        for (uint64_t i = 0; i < expected.guest.size(); ++i)
            *guest_byte(i) = std::byte{0};
        expected.host.resize(size_t{expected.row()} * expected.rows() * expected.size.depth);
        // The image is a level of its own, of one of the faces, between others, which shows offsets that are wrong.
        const svga3d_image image{1, random.below(6), 1};
        define_faces(format, image.face, expected.size);
        for (int step = 0; step < 40; ++step) {
            for (uint64_t i = 0; i < expected.guest.size(); i += 1 + random.below(40))
                *guest_byte(i) = expected.guest[i] = static_cast<std::byte>(random());
            const svga3d_surface_dma command = random_transfer(random, expected, image);
            std::vector<svga3d_copy_box> boxes(1 + random.below(2));
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
    dice random;
    const std::vector<uint32_t> texels = random.words(side * side);
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
    dice random;
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

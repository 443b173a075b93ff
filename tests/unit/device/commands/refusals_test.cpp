// Each refusal: a stream that is taken, then bent in one place.

#include "tests/unit/device/support.h"

namespace kalix::test {
namespace {

constexpr uint32_t cid = 3;
constexpr uint32_t region = 7;

class RefusalsTest : public device_test {
protected:
    RefusalsTest()
    {
        run(stream{}
                .define_surface(1, SVGA3D_A8R8G8B8, {{8, 8, 1}, {4, 4, 1}})
                .define_surface(2, SVGA3D_DXT1, {{8, 8, 1}})
                .define_region(region, {3, 1})
                .command(SVGA_3D_CMD_CONTEXT_DEFINE, svga3d_context{cid}));
    }
};

struct bend {
    const char* name;
    uint32_t command;
    std::vector<uint32_t> good;
    size_t word; // that is replaced; past the end: the body is cut to so many words less
    uint32_t value;
    kalix_refused kind;
};

constexpr size_t cut = 1000;

const std::vector<uint32_t> good_copy{1, 0, 0, 1, 0, 1, 0, 0, 0, 4, 4, 1, 4, 4, 0};
const std::vector<uint32_t> good_stretch{1, 0, 0, 1, 0, 1, 0, 0, 0, 8, 8, 1, 0, 0, 0, 4, 4, 1, 1};
const std::vector<uint32_t> good_dma{region, 0, 0, 1, 0, 0, 1, 0, 0, 0, 8, 8, 1, 0, 0, 0};
const std::vector<uint32_t> good_block_dma{region, 0, 0, 2, 0, 0, 2, 4, 0, 0, 4, 8, 1, 0, 0, 0};
const std::vector<uint32_t> good_blit{1, 0, 0, 0, 0, 8, 8, 0, 0, 0, 16, 16};
const std::vector<uint32_t> good_states{cid, SVGA3D_RS_ZENABLE, 1, SVGA3D_RS_LIGHTINGENABLE, 1};
const std::vector<uint32_t> good_query{cid, 0, region, 8180};

const bend bends[] = {
    {"copy from no surface", 1042, good_copy, 0, 9, KALIX_REFUSED_NO_SURFACE},
    {"copy to no level", 1042, good_copy, 5, 2, KALIX_REFUSED_NO_IMAGE},
    {"copy to no face", 1042, good_copy, 4, 6, KALIX_REFUSED_NO_IMAGE},
    {"copy outside the source", 1042, good_copy, 12, 5, KALIX_REFUSED_OUTSIDE},
    {"copy outside the destination", 1042, good_copy, 6, 1, KALIX_REFUSED_OUTSIDE},
    {"copy of 4 GiB", 1042, good_copy, 9, 0xFFFFFFFF, KALIX_REFUSED_OUTSIDE},
    {"copy between unlike blocks", 1042, good_copy, 3, 2, KALIX_REFUSED_NO_IMAGE},
    {"copy with part of a box", 1042, good_copy, cut, 1, KALIX_REFUSED_SHORT_COMMAND},
    {"copy without images", 1042, good_copy, cut, 10, KALIX_REFUSED_SHORT_COMMAND},
    {"stretch in no mode", 1043, good_stretch, 18, 2, KALIX_REFUSED_BAD_VALUE},
    {"stretch of blocks", 1043, good_stretch, 0, 2, KALIX_REFUSED_NOT_SUPPORTED},
    {"stretch outside the source", 1043, good_stretch, 7, 1, KALIX_REFUSED_OUTSIDE},
    {"stretch outside the destination", 1043, good_stretch, 17, 2, KALIX_REFUSED_OUTSIDE},
    {"transfer of no region", 1044, good_dma, 0, 8, KALIX_REFUSED_NO_REGION},
    {"transfer of the null region", 1044, good_dma, 0, 0xFFFFFFFF, KALIX_REFUSED_NO_REGION},
    {"transfer past the region", 1044, good_dma, 1, 8192 - 255, KALIX_REFUSED_OUTSIDE},
    {"transfer with the largest pitch", 1044, good_dma, 2, 0xFFFFFFFF, KALIX_REFUSED_OUTSIDE},
    {"transfer from the last slice", 1044, good_dma, 15, 0xFFFFFFFF, KALIX_REFUSED_OUTSIDE},
    {"transfer in no direction", 1044, good_dma, 6, 3, KALIX_REFUSED_BAD_VALUE},
    {"transfer of no surface", 1044, good_dma, 3, 5, KALIX_REFUSED_NO_SURFACE},
    {"transfer with a bad suffix", 1044, good_dma, cut, 6, KALIX_REFUSED_SHORT_COMMAND},
    {"transfer from inside a block", 1044, good_block_dma, 7, 2, KALIX_REFUSED_OUTSIDE},
    {"transfer to inside a block", 1044, good_block_dma, 13, 1, KALIX_REFUSED_OUTSIDE},
    {"transfer of part of a block", 1044, good_block_dma, 10, 3, KALIX_REFUSED_OUTSIDE},
    {"destruction of no context", 1046, {cid}, 0, 4, KALIX_REFUSED_NO_CONTEXT},
    {"definition of the id that is none", 1045, {cid}, 0, 0xFFFFFFFF, KALIX_REFUSED_BAD_VALUE},
    {"states of no context", 1049, good_states, 0, 9, KALIX_REFUSED_NO_CONTEXT},
    {"state 92", 1049, good_states, 3, 92, KALIX_REFUSED_BAD_VALUE},
    {"part of a state", 1049, good_states, cut, 1, KALIX_REFUSED_SHORT_COMMAND},
    {"texture stage 8", 1051, {cid, 7, 29, 1}, 1, 8, KALIX_REFUSED_BAD_VALUE},
    {"target 10", 1050, {cid, 9, 1, 0, 0}, 1, 10, KALIX_REFUSED_BAD_VALUE},
    {"clip plane 6", 1056, {cid, 5, 0, 0, 0, 0}, 1, 6, KALIX_REFUSED_BAD_VALUE},
    {"present of no surface", 1058, {1, 0, 0, 4, 4, 0, 0}, 0, 6, KALIX_REFUSED_NO_SURFACE},
    {"present of blocks", 1058, {1, 0, 0, 4, 4, 0, 0}, 0, 2, KALIX_REFUSED_NOT_SUPPORTED},
    {"present of part of a rectangle", 1058, {1, 0, 0, 4, 4, 0, 0}, cut, 1, KALIX_REFUSED_SHORT_COMMAND},
    {"shader of no type", 1059, {cid, 1, 1, 0xFFFE0101}, 2, 3, KALIX_REFUSED_BAD_VALUE},
    {"binding of no shader type", 1061, {cid, 1, 5}, 1, 0, KALIX_REFUSED_BAD_VALUE},
    {"constant register 256", 1062, {cid, 255, 1, 0, 1, 2, 3, 4}, 1, 256, KALIX_REFUSED_BAD_VALUE},
    {"query of no type", 1065, {cid, 0}, 1, 1, KALIX_REFUSED_BAD_VALUE},
    {"query result past the region", 1066, good_query, 3, 8181, KALIX_REFUSED_OUTSIDE},
    {"query result in no region", 1067, good_query, 2, 0xFFFFFFFF, KALIX_REFUSED_NO_REGION},
    {"blit to screen 1", 1069, good_blit, 7, 1, KALIX_REFUSED_BAD_VALUE},
    {"readback of part of a rectangle", 1068, {0, 0, 1, 1}, cut, 1, KALIX_REFUSED_SHORT_COMMAND},
    {"unknown command", 1064, {cid, 0, 0, 1, 1}, cut, 0, KALIX_REFUSED_UNKNOWN_COMMAND},
};

stream bent(const bend& by)
{
    std::vector<uint32_t> words = by.good;
    uint32_t id = by.command;
    if (by.word < words.size())
        words[by.word] = by.value;
    else if (by.value == 0)
        id = 1070;
    else
        words.resize(words.size() - by.value);
    return stream{}.add(svga3d_command_header{id, static_cast<uint32_t>(words.size() * 4)}).add_list(words);
}

TEST_F(RefusalsTest, AGoodCommandBentInOnePlace)
{
    for (const bend& each : bends) {
        SCOPED_TRACE(each.name);
        const uint64_t before = all_refused();
        run(stream{}
                .add(svga3d_command_header{each.command, static_cast<uint32_t>(each.good.size() * 4)})
                .add_list(each.good));
        if (each.command == SVGA_3D_CMD_CONTEXT_DESTROY)
            run(stream{}.command(SVGA_3D_CMD_CONTEXT_DEFINE, svga3d_context{cid}));
        ASSERT_EQ(all_refused(), before);
        const uint64_t of_kind = refused(each.kind);
        run(bent(each).add(svga_cmd_fence{SVGA_CMD_FENCE, 1}));
        EXPECT_EQ(refused(each.kind), of_kind + 1);
        EXPECT_EQ(all_refused(), before + 1);
    }
    // One line for each kind, whatever the number of refusals.
    std::map<std::string, int> lines;
    for (const std::string& line : take_log_lines())
        ++lines[line.substr(line.find("refused"))];
    EXPECT_GE(lines.size(), 7u);
    for (const auto& [line, times] : lines)
        EXPECT_EQ(times, 1) << line;
}

// A bad box or rectangle keeps the good ones from being executed.
TEST_F(RefusalsTest, ARefusedCommandHasDoneNothing)
{
    write_words<uint32_t>(1, 8, 8, std::vector<uint32_t>(64, 5));
    std::memset(scratch.page(3), 0x11, 4096);
    run(stream{}.dma({{{region, 0}, 0}, {1, 0, 0}, SVGA3D_WRITE_HOST_VRAM},
                     {{0, 0, 0, 8, 8, 1, 0, 0, 0}, {1, 0, 0, 8, 8, 1, 0, 0, 0}}));
    run(stream{}.command(SVGA_3D_CMD_SURFACE_COPY, svga3d_surface_copy{{1, 0, 1}, {1, 0, 0}},
                         svga3d_copy_box{0, 0, 0, 4, 4, 1, 0, 0, 0}, svga3d_copy_box{0, 0, 0, 4, 5, 1, 0, 0, 0}));
    EXPECT_EQ(refused(KALIX_REFUSED_OUTSIDE), 2u);
    EXPECT_EQ(read_words<uint32_t>(1, 8, 8), std::vector<uint32_t>(64, 5));
}

} // namespace
} // namespace kalix::test

#include "driver/screen/capability_probe.h"

#include "driver/state/driver_state.h"
#include "svga/svga3d.h"

#include <array>
#include <cstring>
#include <span>

namespace kalix {
namespace {

constexpr int test_failed = 22;
constexpr int no_fifo_space = 12;
constexpr uint32_t side = 184; // pixels of the top level, four bytes each
constexpr uint32_t levels = 8; // all of them, down to a pixel

// Bytes without an order, so that no shift or repetition of them passes for them; they do not begin as what dma_read
// marks its room with.
constexpr std::array<uint8_t, 128> pattern = {
    0x05, 0xE5, 0x73, 0x60, 0x7C, 0xAA, 0x59, 0xBB, 0xC6, 0x27, 0xD1, 0xD6, 0x88, 0x7E, 0xFF, 0xE0, 0xC0, 0x75, 0xFD,
    0x49, 0x2E, 0x86, 0xB7, 0xD3, 0x0C, 0x43, 0xAB, 0x48, 0x3D, 0x2E, 0x53, 0xB4, 0x45, 0xAF, 0xA6, 0x9F, 0xE0, 0x58,
    0x62, 0xB8, 0xF8, 0xF7, 0x66, 0xB0, 0xD1, 0x48, 0xB0, 0xF7, 0x28, 0xE0, 0xDA, 0x7F, 0xD3, 0xE9, 0x01, 0xBC, 0x16,
    0x50, 0x55, 0x0C, 0x04, 0xDD, 0x32, 0x6E, 0x8E, 0xA1, 0x99, 0x75, 0x00, 0x60, 0x06, 0xDA, 0x28, 0x76, 0x04, 0xB7,
    0xA1, 0xA8, 0x65, 0x04, 0x87, 0x65, 0x04, 0x44, 0xCD, 0x80, 0x4B, 0xEA, 0x06, 0x25, 0xF5, 0xA8, 0xB3, 0x33, 0x13,
    0x40, 0xCB, 0x0A, 0xD8, 0x1C, 0x3D, 0x9B, 0xFD, 0x49, 0xA5, 0xBA, 0x0C, 0x2C, 0xA0, 0xAB, 0xF6, 0xBD, 0xCA, 0x84,
    0x1D, 0xDE, 0xBE, 0xB5, 0xB4, 0x4F, 0x09, 0xA7, 0xF0, 0x48, 0x46, 0x9F, 0x22, 0x8D};

// Under the device mutex.
bool created; // the surface's definition was tried
bool tested;  // before anything is tried, so that a test that failed is not tried again
int test_result;

struct define_command {
    svga3d_command_header header;
    svga3d_surface_define body;
    svga3d_size sizes[levels];
};
static_assert(sizeof(define_command) == 140);

struct destroy_command {
    svga3d_command_header header;
    svga3d_surface_destroy body;
};
static_assert(sizeof(destroy_command) == 12);

int create_surface()
{
    if (created)
        return 0;
    created = true;
    void* const space = SVGA_FIFOReserve(sizeof(define_command));
    if (!space)
        return no_fifo_space;
    define_command define{{SVGA_3D_CMD_SURFACE_DEFINE, sizeof define - sizeof define.header},
                          {self_test_sid, SVGA3D_SURFACE_HINT_TEXTURE, SVGA3D_A8R8G8B8, {levels, 0, 0, 0, 0, 0}},
                          {}};
    for (uint32_t level = 0; level < levels; ++level)
        define.sizes[level] = {side >> level, side >> level, 1};
    std::memcpy(space, &define, sizeof define);
    SVGA_FIFOCommit(sizeof define);
    return 0;
}

int destroy_surface()
{
    void* const space = SVGA_FIFOReserve(sizeof(destroy_command));
    if (!space)
        return -1;
    const destroy_command destroy{{SVGA_3D_CMD_SURFACE_DESTROY, sizeof(svga3d_surface_destroy)}, {self_test_sid}};
    std::memcpy(space, &destroy, sizeof destroy);
    SVGA_FIFOCommitAll();
    return 0;
}

// Moves the first bytes of the top level from or to an offset of the dirty GMR; nothing without FIFO space,
// which the comparison then finds.
void transfer(uint32_t direction, uint32_t offset, size_t bytes)
{
    const svga3d_guest_image guest{{_globals.dirty_gmr_id, offset}, side * 4};
    const svga3d_image host{self_test_sid, 0, 0};
    svga3d_copy_box* box = nullptr;
    if (SVGA3D_BeginSurfaceDMA(&guest, &host, direction, &box, 1) != 0)
        return;
    *box = {0, 0, 0, static_cast<uint32_t>(bytes / 4), 1, 1, 0, 0, 0};
    SVGA_FIFOCommitAll();
}

// Not waited for: the FIFO keeps the read behind it, and the write's bytes stay in place until then.
int dma_write(std::span<const uint8_t> bytes)
{
    std::memcpy(_globals.dirty_gmr_base, bytes.data(), bytes.size());
    transfer(SVGA3D_WRITE_HOST_VRAM, 0, bytes.size());
    return 0;
}

int dma_read(std::span<const uint8_t> expected)
{
    if (expected.empty())
        return test_failed;
    // Behind what was written; marked, so that a transfer that does not happen matches no pattern.
    std::byte* const back = _globals.dirty_gmr_base + expected.size();
    for (uint8_t i = 0; i < 8; ++i)
        back[i] = std::byte{i};
    transfer(SVGA3D_READ_HOST_VRAM, static_cast<uint32_t>(expected.size()), expected.size());
    SVGA_SyncToFence(SVGA_InsertFence());
    return std::memcmp(back, expected.data(), expected.size()) == 0 ? 0 : test_failed;
}

struct step {
    int (*run)();
    const char* name;
};
constexpr step steps[] = {
    {create_surface, "create_surface"},
    {[] { return dma_write(pattern); }, "dma_write"},
    {[] { return dma_read(pattern); }, "dma_read"},
    {destroy_surface, "destroy_surface"},
};

} // namespace

int mipmap_dma_test()
{
    if (tested)
        return test_result;
    tested = true;
    for (const step& next : steps)
        if (next.run() != 0) {
            slogf(log_code, log_error, "kalix: mipmap test: %s failed", next.name);
            return test_result = test_failed;
        }
    return test_result = 0;
}

int gpu_cap_test()
{
    _globals.mipmap_dma_failed = mipmap_dma_test() != 0;
    // An error's severity for either outcome, as readers of the log know the line.
    slogf(log_code, log_error, "kalix: gpu cap test: mipmap dma... %s",
          _globals.mipmap_dma_failed ? "failed" : "passed");
    return 0;
}

void reset_self_test()
{
    created = tested = false;
    test_result = 0;
}

} // namespace kalix

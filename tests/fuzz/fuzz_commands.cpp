// Any bytes as a stream of commands: the device lives, still answers, and has kept to the guest's pages.
//
// Built by the preset fuzz; build/fuzz/tests/fuzz_commands CORPUS, with libFuzzer's options. Before each input
// the device is given what its commands can name: surfaces 1 to 4, region 1, context 1.

#include "tests/support.h"
#include "tests/unit/device/stream.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace kalix {
namespace {

constexpr size_t page_bytes = 4096;
constexpr uint64_t page_count = 8;
constexpr size_t longest_input = 4096;

// A block of just the region's pages, so that the sanitizer sees a byte too many on either side.
std::vector<std::byte> memory(page_count* page_bytes);

std::byte* page_address(uint64_t page)
{
    return page < page_count ? memory.data() + page * page_bytes : nullptr;
}

using test::run_stream;
using test::stream;

stream what_inputs_name()
{
    std::vector<uint64_t> pages(page_count);
    for (uint64_t page = 0; page < page_count; ++page)
        pages[page] = page_count - 1 - page; // never two in a row
    stream out;
    out.define_surface(1, SVGA3D_A8R8G8B8, {{32, 32, 1}})
        .define_surface(2, SVGA3D_Z_D24S8, {{32, 32, 1}})
        .define_surface(3, SVGA3D_DXT5, {{16, 16, 2}})
        .define_surface(4, SVGA3D_BUFFER, {{1024, 1, 1}})
        .define_region(1, pages)
        .dma({{{1, 0}, 0}, {4, 0, 0}, SVGA3D_WRITE_HOST_VRAM}, {{0, 0, 0, 1024, 1, 1, 0, 0, 0}})
        .command(SVGA_3D_CMD_CONTEXT_DEFINE, svga3d_context{1})
        .command(SVGA_3D_CMD_SETRENDERTARGET, svga3d_set_render_target{1, SVGA3D_RT_COLOR0, {1, 0, 0}})
        .command(SVGA_3D_CMD_SETRENDERTARGET, svga3d_set_render_target{1, SVGA3D_RT_DEPTH, {2, 0, 0}})
        .command(SVGA_3D_CMD_SETVIEWPORT, svga3d_set_viewport{1, {0, 0, 32, 32}});
    return out;
}

std::unique_ptr<svga_bus> opened()
{
    device_options options;
    options.framebuffer_bytes = 4 << 20;
    options.surface_memory_bytes = 4 << 20;
    options.threads = 1; // an input does the same every time
    options.page_address = page_address;
    std::unique_ptr<svga_bus> device = open_software_device(options);
    if (!device)
        std::abort();
    device->write_register(SVGA_REG_CONFIG_DONE, 1);
    return device;
}

// Opening a device takes far longer than an input. What an input leaves behind is defined anew before the next one;
// the rest goes with the device, before it fills the memory.
svga_bus& device_for_an_input()
{
    constexpr uint32_t inputs_of_a_device = 500;
    static std::unique_ptr<svga_bus> device;
    static uint32_t inputs = 0;
    if (inputs++ % inputs_of_a_device == 0) {
        device.reset(); // the screen file has one owner
        device = opened();
    }
    return *device;
}

void run_one(std::span<const uint8_t> input)
{
    svga_bus& device = device_for_an_input();
    static const stream before = what_inputs_name();
    run_stream(device, before);
    stream tried;
    for (const uint8_t each : input)
        tried.add(each);
    run_stream(device, tried);
    static uint32_t number = 0;
    run_stream(device, stream{}.add(svga_cmd_fence{SVGA_CMD_FENCE, ++number}));
    if (fifo_load(device.fifo(), SVGA_FIFO_FENCE) != number)
        std::abort();
}

// Where the device has its screen file; it goes after the device, which is opened later.
struct run_directory {
    test::fresh_directory directory;
    run_directory() { setenv("KALIX_RUN_DIR", directory.path().c_str(), 1); }
};

// Numbers that are places in the targets, of which vertices are made.
void fill_pages()
{
    constexpr size_t numbers = page_count * page_bytes / sizeof(float);
    for (size_t i = 0; i < numbers; ++i) {
        const auto value = static_cast<float>(i * 7 % 33);
        std::memcpy(memory.data() + i * sizeof value, &value, sizeof value);
    }
}

} // namespace
} // namespace kalix

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const kalix::run_directory directory;
    if (size > kalix::longest_input)
        return -1;
    kalix::fill_pages();
    kalix::run_one({data, size});
    return 0;
}

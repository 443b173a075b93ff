#include "tests/unit/device/support.h"

#include <atomic>
#include <fcntl.h>
#include <mutex>
#include <numeric>
#include <sys/mman.h>
#include <unistd.h>

namespace kalix::test {
namespace {

std::atomic<std::byte*> first_page{nullptr};
std::atomic<uint64_t> page_count{0};
std::mutex log_lock;
std::vector<std::string> log_lines;

std::byte* test_page(uint64_t number)
{
    return number == 0 || number > page_count ? nullptr : first_page + (number - 1) * 4096;
}

void log_line(int, const char* text)
{
    const std::scoped_lock locked{log_lock};
    log_lines.emplace_back(text);
}

} // namespace

guest_pages::guest_pages(uint32_t count) : mapped_{(size_t{count} + 2) * 4096}
{
    void* const at = mmap(nullptr, mapped_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    begin_ = static_cast<std::byte*>(at) + 4096;
    if (at == MAP_FAILED || mprotect(begin_, size_t{count} * 4096, PROT_READ | PROT_WRITE) != 0)
        std::abort();
    first_page = begin_;
    page_count = count;
}

guest_pages::~guest_pages()
{
    page_count = 0;
    munmap(begin_ - 4096, mapped_);
}

screen_view::screen_view(const std::string& path) : bytes_{std::filesystem::file_size(path)}
{
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    memory_ = mmap(nullptr, bytes_, PROT_READ, MAP_SHARED, file, 0);
    close(file);
    if (memory_ == MAP_FAILED)
        std::abort();
}

screen_view::~screen_view()
{
    munmap(memory_, bytes_);
}

uint32_t screen_view::sequence() const
{
    return std::atomic_ref{static_cast<kalix_screen*>(memory_)->sequence}.load();
}

device_test::device_test()
{
    std::string name = std::filesystem::temp_directory_path() / "kalix-device-test.XXXXXX";
    directory = mkdtemp(name.data());
    setenv("KALIX_RUN_DIR", directory.c_str(), 1);
    take_log_lines();
    bus = open();
    view = std::make_unique<screen_view>(screen_path());
    std::vector<uint64_t> upper_half(pages / 2); // which tests leave alone
    std::iota(upper_half.begin(), upper_half.end(), pages / 2 + 1);
    run(stream{}.define_region(scratch_region, upper_half));
}

device_test::~device_test()
{
    bus.reset();
    std::filesystem::remove_all(directory);
}

std::unique_ptr<svga_bus> device_test::open()
{
    device_options options;
    options.framebuffer_bytes = framebuffer_bytes;
    options.surface_memory_bytes = surface_bytes;
    options.log = log_line;
    options.page_address = test_page;
    std::unique_ptr<svga_bus> opened = open_software_device(options);
    opened->write_register(SVGA_REG_CONFIG_DONE, 1);
    return opened;
}

void device_test::set_mode(uint32_t width, uint32_t height, uint32_t bits)
{
    bus->write_register(SVGA_REG_WIDTH, width);
    bus->write_register(SVGA_REG_HEIGHT, height);
    bus->write_register(SVGA_REG_BITS_PER_PIXEL, bits);
    bus->write_register(SVGA_REG_ENABLE, 1);
}

uint64_t device_test::all_refused() const
{
    const auto& counts = view->header().statistics.refused;
    return std::accumulate(std::begin(counts), std::end(counts), uint64_t{0});
}

void device_test::fence(uint32_t number)
{
    run(stream{}.add(svga_cmd_fence{SVGA_CMD_FENCE, number}));
    ASSERT_EQ(fifo_load(bus->fifo(), SVGA_FIFO_FENCE), number);
}

uint32_t device_test::pixel(uint32_t x, uint32_t y) const
{
    uint32_t value;
    std::memcpy(&value, view->picture() + y * view->header().pitch + x * 4, sizeof value);
    return value;
}

void device_test::write_surface(const svga3d_image& image, const svga3d_size& size,
                                const std::vector<std::byte>& texels)
{
    std::memcpy(scratch.page(pages / 2 + 1), texels.data(), texels.size());
    run(stream{}.dma({{{scratch_region, 0}, 0}, image, SVGA3D_WRITE_HOST_VRAM},
                     {{0, 0, 0, size.width, size.height, size.depth, 0, 0, 0}}));
}

std::vector<std::byte> device_test::read_surface(const svga3d_image& image, const svga3d_size& size, size_t bytes)
{
    run(stream{}.dma({{{scratch_region, 0}, 0}, image, SVGA3D_READ_HOST_VRAM},
                     {{0, 0, 0, size.width, size.height, size.depth, 0, 0, 0}}));
    const std::byte* const begin = scratch.page(pages / 2 + 1);
    return {begin, begin + bytes};
}

std::vector<std::string> take_log_lines()
{
    const std::scoped_lock locked{log_lock};
    return std::exchange(log_lines, {});
}

} // namespace kalix::test

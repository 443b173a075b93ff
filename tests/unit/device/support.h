// A device of its own for each test, with guest memory between guard pages, and a writer of streams.
#pragma once

#include "tests/unit/device/chance.h"
#include "tests/unit/device/stream.h"

#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <kalix/screen.h>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kalix::test {

// Pages 1 to count of guest memory, in one piece with a guard page on either side; no other page exists.
class guest_pages {
public:
    explicit guest_pages(uint32_t count);
    ~guest_pages();
    guest_pages(const guest_pages&) = delete;
    guest_pages& operator=(const guest_pages&) = delete;

    std::byte* page(uint64_t number) const { return begin_ + (number - 1) * 4096; }

private:
    std::byte* begin_;
    size_t mapped_;
};

// A read-only view of a screen file, as a viewer has it.
class screen_view {
public:
    explicit screen_view(const std::string& path);
    ~screen_view();
    screen_view(const screen_view&) = delete;
    screen_view& operator=(const screen_view&) = delete;

    const kalix_screen& header() const { return *static_cast<const kalix_screen*>(memory_); }
    const std::byte* picture() const { return static_cast<const std::byte*>(memory_) + header().framebuffer_offset; }
    // Odd while a change goes on.
    uint32_t sequence() const;

private:
    void* memory_;
    size_t bytes_;
};

// A private run directory, and a device in it whose ring may be read.
class device_test : public testing::Test {
protected:
    static constexpr uint32_t pages = 256;
    static constexpr uint64_t framebuffer_bytes = 4 << 20;
    static constexpr uint64_t surface_bytes = 8 << 20;

    device_test();
    ~device_test() override;

    std::unique_ptr<svga_bus> open();
    void run(const stream& commands) { run_stream(*bus, commands); }
    void set_mode(uint32_t width, uint32_t height, uint32_t bits);
    uint64_t refused(kalix_refused kind) const { return view->header().statistics.refused[kind]; }
    uint64_t all_refused() const;
    void fence(uint32_t number); // passes one, and expects it
    void stretch(uint32_t from, const svga3d_box& source, uint32_t to, const svga3d_box& destination, uint32_t mode)
    {
        run(stream{}.command(SVGA_3D_CMD_SURFACE_STRETCHBLT,
                             svga3d_surface_stretchblt{{from, 0, 0}, {to, 0, 0}, source, destination, mode}));
    }
    uint32_t pixel(uint32_t x, uint32_t y) const; // of a 32-bit screen
    std::string screen_path() const { return directory + "/screen"; }

    // Surfaces of one level, read and written whole through a region of their own.
    static constexpr uint32_t scratch_region = 4000;
    void write_surface(const svga3d_image& image, const svga3d_size& size, const std::vector<std::byte>& texels);
    std::vector<std::byte> read_surface(const svga3d_image& image, const svga3d_size& size, size_t bytes);
    template <typename word>
    void write_words(uint32_t sid, uint32_t width, uint32_t height, const std::vector<word>& texels)
    {
        const auto* const begin = reinterpret_cast<const std::byte*>(texels.data());
        write_surface({sid, 0, 0}, {width, height, 1}, {begin, begin + texels.size() * sizeof(word)});
    }
    template <typename word>
    std::vector<word> read_words(uint32_t sid, uint32_t width, uint32_t height)
    {
        std::vector<word> texels(size_t{width} * height);
        const auto bytes = read_surface({sid, 0, 0}, {width, height, 1}, texels.size() * sizeof(word));
        std::memcpy(texels.data(), bytes.data(), bytes.size());
        return texels;
    }

    std::string directory;
    guest_pages scratch{pages};
    std::unique_ptr<svga_bus> bus;
    std::unique_ptr<screen_view> view;
};

// The lines that devices have logged since the last call.
std::vector<std::string> take_log_lines();

} // namespace kalix::test

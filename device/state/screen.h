// The screen: its mode, the visible picture, the cursor, and the counters that viewers read.
//
// Owns the screen file. Everything that a viewer can see changes inside a screen_change, which keeps the
// file's sequence odd meanwhile; so a viewer takes whole frames. Used under the device's execution lock.
#pragma once

#include "device/state/screen_file.h"
#include "svga/svga_regs.h"

#include <cstddef>
#include <cstdint>
#include <kalix/svga3d_types.h>
#include <span>

namespace kalix::device {

struct mode {
    uint32_t width = 0, height = 0; // pixels
    uint32_t bits_per_pixel = 0;

    uint32_t bytes_per_pixel() const { return bits_per_pixel / 8; }
    uint32_t pitch() const { return width * bytes_per_pixel(); }
    uint64_t picture_bytes() const { return uint64_t{pitch()} * height; }
    // The surface format that its pixels have.
    uint32_t format() const { return bits_per_pixel == 16 ? SVGA3D_R5G6B5 : SVGA3D_X8R8G8B8; }
};

inline constexpr mode first_mode{1024, 768, 32};

// Whether a framebuffer of so many bytes can show it: 16 or 32 bits, 4 bytes for each pixel, at least one pixel.
constexpr bool fits(const mode& wanted, uint64_t framebuffer_bytes)
{
    return (wanted.bits_per_pixel == 16 || wanted.bits_per_pixel == 32) && wanted.width != 0 && wanted.height != 0 &&
           wanted.width <= framebuffer_bytes / 4 / wanted.height;
}

class screen {
public:
    screen(uint64_t framebuffer_bytes, log_function log);
    ~screen();
    screen(const screen&) = delete;
    screen& operator=(const screen&) = delete;

    explicit operator bool() const { return static_cast<bool>(file_); }
    std::span<std::byte> framebuffer() const { return file_.framebuffer(); }
    const mode& shown() const { return mode_; }
    // Rows follow each other without a gap; the caller keeps x and y inside the mode.
    std::byte* pixel(uint32_t x, uint32_t y) const
    {
        return framebuffer().data() + uint64_t{y} * mode_.pitch() + uint64_t{x} * mode_.bytes_per_pixel();
    }

    // Makes it the mode, which fits, and clears the visible picture.
    void set_mode(const mode& to);
    void set_enabled(bool enabled);
    // A new cursor image: width x height premultiplied pixels in packed rows, at most
    // SVGA_CURSOR_EXTENT_MAX a side.
    void define_cursor(const svga_alpha_cursor& shape, std::span<const uint32_t> pixels);
    // Where its hotspot is, in screen pixels; it may lie outside.
    void move_cursor(bool visible, uint32_t x, uint32_t y);
    // Hands the counters to the viewers.
    void publish(const kalix_screen_statistics& counters);

private:
    friend class screen_change;

    screen_file file_;
    mode mode_ = first_mode;
};

// The time in which the picture changes; its end tells the viewers of it. Changes never lie inside each other: a second
// one would make the sequence even while the first still writes.
class screen_change {
public:
    explicit screen_change(screen& of);
    ~screen_change();
    screen_change(const screen_change&) = delete;
    screen_change& operator=(const screen_change&) = delete;

    void damaged() { damaged_ = true; }

private:
    kalix_screen& header_;
    bool damaged_ = false;
};

} // namespace kalix::device

// The screen of a server, as its viewers see it.
#pragma once

#include "tools/screen/mapped_file.h"

#include <cstdint>
#include <kalix/screen.h>
#include <string>
#include <vector>

namespace kalix::tools {

// One whole frame.
struct screen_frame {
    uint32_t server_pid = 0; // 0: the device has stopped
    bool enabled = false;    // the display is on; off, all pixels are black
    uint32_t width = 0, height = 0, bits_per_pixel = 0;
    uint64_t damage = 0;
    std::vector<uint32_t> pixels; // 0xFFRRGGBB, packed rows
};

enum class cursor_drawing { without, with };

// Tells whoever looks, on standard error, that a black screen is black because the display is off: once each time
// that it goes off, and at the first frame.
class off_teller {
public:
    explicit off_teller(const char* program) : program_{program} {}
    void look(const screen_frame& frame);

private:
    const char* program_;
    bool told_ = false;
};

class screen_reader {
public:
    // The screen file of a run directory. Throws std::system_error or std::runtime_error, which say what to do.
    explicit screen_reader(const std::string& directory);

    // Reads a frame; the one in hand is reused. False, and the frame is as it was, when the device kept changing
    // it for too long.
    bool read(screen_frame& frame, cursor_drawing cursor);

    // Whether anything that a frame shows may have changed since the last call; cheap.
    bool changed();

    // What the device has counted, a consistent copy.
    kalix_screen_statistics statistics() const;

private:
    const kalix_screen& header() const;
    void copy(kalix_screen& state, std::vector<std::byte>& picture);

    mapped_file file_;
    uint32_t sequence_ = ~0u;          // at the last call of changed()
    kalix_screen state_{};             // the header of the frame being read
    std::vector<std::byte> picture_{}; // its rows
};

} // namespace kalix::tools

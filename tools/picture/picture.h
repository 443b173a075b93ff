// A finished picture and where it goes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kalix::tools {

// Rows from the top, packed, four bytes a pixel: blue, green, red, alpha.
struct picture {
    uint32_t width = 0, height = 0;
    std::vector<std::byte> pixels;
};

enum class alpha_channel { opaque, kept }; // opaque: the fourth byte is not looked at

// Writes a PNG file; "-" is standard output. Throws std::runtime_error; a file that could not be written
// whole is removed.
void write_png(const picture& image, const std::string& path, alpha_channel alpha = alpha_channel::opaque);

// Writes bytes as they are, likewise.
void write_bytes(const std::vector<std::byte>& bytes, const std::string& path);

} // namespace kalix::tools

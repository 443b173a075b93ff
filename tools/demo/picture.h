// A finished picture and where it goes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kalix::demo {

// Rows from the top, packed, four bytes a pixel: blue, green, red, and one that is not looked at.
struct picture {
    uint32_t width = 0, height = 0;
    std::vector<std::byte> pixels;
};

// Writes an opaque PNG file. Throws std::runtime_error; a file that could not be written whole is removed.
void write_png(const picture& image, const std::string& path);

} // namespace kalix::demo

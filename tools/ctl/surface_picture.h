// Pixels of surface formats as pictures.
#pragma once

#include "tools/picture/picture.h"

#include <cstddef>
#include <span>

namespace kalix::ctl {

bool has_picture(uint32_t format);

// Packed rows of a format that can be converted; formats without alpha become opaque.
tools::picture picture_of(uint32_t format, uint32_t width, uint32_t height, std::span<const std::byte> rows);

} // namespace kalix::ctl

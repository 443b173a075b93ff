// What the device can do: the one table that clients read from the FIFO's capability area.
//
// Everything in it is worked out from what does the work: the raster core's limits and the format table.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace kalix::device {

inline constexpr uint32_t capability_area_words = 256;

// Writes the capability record and the end mark behind it.
void write_capabilities(std::span<uint32_t, capability_area_words> area);

// The same for people: the table of docs/device.md, in Markdown.
std::string capability_table();

} // namespace kalix::device

// Rows that are copied: shared between the drawing threads where there are enough, and whole pieces of memory where
// rows follow each other without a gap.
//
// One thread alone does not use up the memory's speed. Any order of rows must do, so callers share only copies whose
// source and target do not overlap. Called on the fetching thread, whose workers these are.
#pragma once

#include "device/raster/workers.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kalix::device {

// Calls work(first, last) for parts of count rows, last not included: one part, or one for each thread (workers
// may be null), at once. The rows lie in memory, so that their bytes can be counted.
template <typename function>
void for_row_parts(raster::worker_pool* workers, uint64_t count, uint64_t row_bytes, const function& work)
{
    constexpr uint64_t worth_sharing = 262144; // bytes; below that a wake-up costs more than it saves
    if (!workers || count * row_bytes < worth_sharing)
        return work(uint64_t{0}, count);
    const uint64_t threads = workers->count();
    workers->run([&](uint32_t index) { work(count * index / threads, count * (index + 1) / threads); });
}

// A first row and the bytes from one row to the next, which are no fewer than a row's.
struct row_source {
    const std::byte* bytes;
    uint64_t pitch; // from one row to the next
};
struct row_target {
    std::byte* bytes;
    uint64_t pitch;
};

// Copies rows between places that do not overlap.
inline void copy_rows(raster::worker_pool* workers, const row_source& from, const row_target& to, uint64_t count,
                      uint64_t row_bytes)
{
    const bool one_piece = from.pitch == row_bytes && to.pitch == row_bytes;
    for_row_parts(workers, count, row_bytes, [&](uint64_t first, uint64_t last) {
        if (one_piece)
            std::memcpy(to.bytes + first * row_bytes, from.bytes + first * row_bytes, (last - first) * row_bytes);
        else
            for (uint64_t row = first; row < last; ++row)
                std::memcpy(to.bytes + row * to.pitch, from.bytes + row * from.pitch, row_bytes);
    });
}

} // namespace kalix::device

#include "driver/screen/scaling.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace kalix {
namespace {

constexpr size_t pixel_bytes = 4;
constexpr int64_t strip_rows = 48; // source rows, at the bottom of a frame

// Tables in place of divisions, of which the filters would need several for each pixel.
using division_table = std::array<uint8_t, 768>;

// Entry i: the low byte of i x numerator / denominator. A sum of four bytes, weighed, stays below 768.
constexpr division_table divisions(uint32_t numerator, uint32_t denominator)
{
    division_table table{};
    for (uint32_t i = 0; i < table.size(); ++i)
        table[i] = static_cast<uint8_t>(i * numerator / denominator);
    return table;
}
constexpr division_table lookup_1_3 = divisions(1, 3);
constexpr division_table lookup_2_3 = divisions(2, 3);
constexpr division_table lookup_1_9 = divisions(1, 9);
constexpr division_table lookup_2_9 = divisions(2, 9);
constexpr division_table lookup_4_9 = divisions(4, 9);
constexpr division_table lookup_9_16 = divisions(9, 16);

// Byte 0 of a group's pixels. In the filters c is the row itself and a the one above it; the weights of each sum up to
// 1, so that a flat grey comes out as itself or a little less: every division cuts.
using blues = std::array<uint32_t, 4>;
using greys = std::array<uint8_t, 3>;

greys half(const blues& c, const blues& a)
{
    return {static_cast<uint8_t>((c[0] + c[1] + a[0] + a[1]) / 4)};
}

greys two_thirds(const blues& c, const blues& a)
{
    return {lookup_4_9[c[0] + c[1] / 2 + a[0] / 2 + a[1] / 4], lookup_4_9[c[2] + c[1] / 2 + a[2] / 2 + a[1] / 4]};
}

greys three_quarters(const blues& c, const blues& a)
{
    return {lookup_9_16[c[0] + lookup_1_3[c[1]] + lookup_1_3[a[0]] + lookup_1_9[a[1]]],
            lookup_9_16[lookup_2_3[c[1]] + lookup_2_3[c[2]] + lookup_2_9[a[1]] + lookup_2_9[a[2]]],
            lookup_9_16[c[3] + lookup_1_3[c[2]] + lookup_1_3[a[3]] + lookup_1_9[a[2]]]};
}

struct kernel {
    float zoom;
    int64_t rows_kept;                               // in a run, before one is skipped; 0: every third row alone
    uint32_t columns_read, columns_written;          // of a group
    greys (*filter)(const blues& c, const blues& a); // of the bottom strip; none: rows there are like others
};
constexpr kernel kernels[] = {
    {zoom_third, 0, 3, 1, nullptr},
    {zoom_half, 1, 2, 1, half},
    {zoom_two_thirds, 2, 3, 2, two_thirds},
    {zoom_three_quarters, 3, 4, 3, three_quarters},
};

// One frame on its way through a kernel; writes destination rows from the top.
class conversion {
public:
    conversion(const kernel& by, const scaled_frame& frame) : by_{by}, frame_{frame} {}

    // The end of the last row counts whole groups, as those are what is written.
    bool fits() const
    {
        const uint64_t last_row = groups() * by_.columns_written * pixel_bytes;
        const uint64_t rows = frame_.height; // more than are written
        return uint64_t{frame_.width} * frame_.height * pixel_bytes <= frame_.from.size() &&
               rows * frame_.pitch + last_row <= frame_.to.size();
    }

    void run()
    {
        if (frame_.width == 0 || frame_.height == 0)
            return;
        complete_last_group();
        if (by_.rows_kept == 0)
            for (int64_t row = 2; row < frame_.height; row += 3)
                keep(row);
        else
            walk();
    }

private:
    uint64_t groups() const { return (uint64_t{frame_.width} + by_.columns_read - 1) / by_.columns_read; }

    // Of the last row alone: every other row has the next one's pixels behind its own, which the kernel reads instead.
    void complete_last_group()
    {
        const uint64_t first = uint64_t{frame_.width} * (frame_.height - 1) + (groups() - 1) * by_.columns_read;
        const uint64_t last = frame_.from.size() / pixel_bytes - 1;
        for (size_t i = 0; i < by_.columns_read; ++i)
            std::copy_n(&frame_.from[std::min(first + i, last) * pixel_bytes], pixel_bytes,
                        &last_group_[i * pixel_bytes]);
    }

    // Signed, since a frame may be lower than the strip. The count goes on from the colours into the strip, so that the
    // rhythm of kept rows is one; a row that is skipped there still is the row above of the next.
    void walk()
    {
        const int64_t height = frame_.height;
        int64_t counter = 0;
        int64_t row = 0;
        for (; row < height - strip_rows; ++row, ++counter) {
            if (counter == by_.rows_kept) {
                counter = 0;
                ++row;
            }
            keep(row);
        }
        for (; row < height; ++row, ++counter) {
            if (counter == by_.rows_kept) {
                counter = 0;
                ++row;
            }
            if (row < height)
                filter(row, std::max<int64_t>(row - 1, 0)); // the first row stands above itself
        }
    }

    const std::byte* source(int64_t row, uint32_t column) const
    {
        const size_t at = (static_cast<size_t>(row) * frame_.width + column) * pixel_bytes;
        return by_.columns_read * pixel_bytes <= frame_.from.size() - at ? &frame_.from[at] : last_group_.data();
    }

    std::byte* begin_row() { return &frame_.to[written_++ * frame_.pitch]; }

    void keep(int64_t row)
    {
        std::byte* out = begin_row();
        for (uint32_t column = 0; column < frame_.width; column += by_.columns_read) {
            const std::byte* const in = source(row, column);
            for (size_t i = 0; i < by_.columns_written; ++i, out += pixel_bytes)
                std::copy_n(in + i * pixel_bytes, 3, out);
        }
    }

    blues group(int64_t row, uint32_t column) const
    {
        blues out{};
        const std::byte* const in = source(row, column);
        for (size_t i = 0; i < by_.columns_read; ++i)
            out[i] = std::to_integer<uint32_t>(in[i * pixel_bytes]);
        return out;
    }

    void filter(int64_t row, int64_t above)
    {
        std::byte* out = begin_row();
        for (uint32_t column = 0; column < frame_.width; column += by_.columns_read) {
            const greys values = by_.filter(group(row, column), group(above, column));
            for (size_t i = 0; i < by_.columns_written; ++i, out += pixel_bytes)
                std::fill_n(out, 3, std::byte{values[i]});
        }
    }

    const kernel& by_;
    const scaled_frame& frame_;
    std::array<std::byte, 4 * pixel_bytes> last_group_{}; // of the last row, whole
    size_t written_ = 0;
};

} // namespace

bool scale(float zoom, const scaled_frame& frame)
{
    const auto* const by = std::ranges::find(kernels, zoom, &kernel::zoom);
    if (by == std::end(kernels))
        return false;
    conversion work{*by, frame};
    if (!work.fits())
        return false;
    work.run();
    return true;
}

} // namespace kalix

#include "hardware/gpu/vmware_svga/lib/device/raster/rows.h"

#include "hardware/gpu/vmware_svga/lib/device/raster/channels.h"

#include <algorithm>

namespace kalix::device::raster {
namespace {

using bytes16 [[gnu::vector_size(16)]] = uint8_t; // four pixels
using shorts [[gnu::vector_size(16)]] = uint16_t; // two

bytes16 load_four(const std::byte* from)
{
    bytes16 out;
    std::memcpy(&out, from, sizeof out);
    return out;
}

// v / 255, rounded to nearest, for v of at most 255 x 255.
shorts divided(shorts v)
{
    const shorts sum = v + 128;
    return (sum + (sum >> 8)) >> 8;
}

// Two pixels blended by the source's alpha. A weighed sum of bytes never lies half way between two, so that
// integers round as the general way's floats do.
shorts over_two(shorts source, shorts under)
{
    const shorts alpha = __builtin_shufflevector(source, source, 3, 3, 3, 3, 7, 7, 7, 7);
    return divided(source * alpha + under * (255 - alpha));
}

bytes16 over_four(bytes16 source, bytes16 under)
{
    const bytes16 zero{};
    const auto low = [&](bytes16 v) {
        return std::bit_cast<shorts>(
            __builtin_shufflevector(v, zero, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23));
    };
    const auto high = [&](bytes16 v) {
        return std::bit_cast<shorts>(
            __builtin_shufflevector(v, zero, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31));
    };
    const auto first = std::bit_cast<bytes16>(over_two(low(source), low(under)));
    const auto second = std::bit_cast<bytes16>(over_two(high(source), high(under)));
    return __builtin_shufflevector(first, second, 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
}

bytes16 four_times(uint32_t word)
{
    using four_words [[gnu::vector_size(16)]] = uint32_t;
    return std::bit_cast<bytes16>(four_words{word, word, word, word});
}

} // namespace

void copy_run(const std::byte* from, std::byte* to, size_t count, uint32_t alpha)
{
    if (alpha == 0) {
        std::memmove(to, from, count * 4); // a texture may be its own target
        return;
    }
    for (size_t i = 0; i < count; ++i) {
        const uint32_t word = load_pixel(from + i * 4) | alpha;
        std::memcpy(to + i * 4, &word, sizeof word);
    }
}

void blend_run(const std::byte* from, std::byte* to, size_t count, uint32_t alpha, uint32_t hidden)
{
    const bytes16 source_alpha = four_times(alpha);
    const bytes16 under_alpha = four_times(hidden);
    for (; count >= 4; count -= 4, from += 16, to += 16) {
        const bytes16 result = over_four(load_four(from) | source_alpha, load_four(to) | under_alpha);
        std::memcpy(to, &result, sizeof result);
    }
    if (count == 0)
        return;
    std::byte source[16] = {}, under[16] = {};
    std::memcpy(source, from, count * 4);
    std::memcpy(under, to, count * 4);
    const bytes16 result = over_four(load_four(source) | source_alpha, load_four(under) | under_alpha);
    std::memcpy(to, &result, count * 4);
}

filtered_row::filtered_row(const image_view& image, const axis& down, double v, int64_t first, int64_t last)
    : first_{first}
{
    thread_local std::vector<float> kept; // allocated once a thread
    const int64_t position = down.position(v) - one / 2;
    const int64_t y = position >> fraction_bits;
    const float share = static_cast<float>(position & (one - 1)) / static_cast<float>(one);
    const float rest = 1 - share;
    const auto* const upper = reinterpret_cast<const uint8_t*>(image.bytes + down.texel(y) * image.row_bytes);
    const auto* const lower = reinterpret_cast<const uint8_t*>(image.bytes + down.texel(y + 1) * image.row_bytes);
    const int64_t inside_first = std::clamp<int64_t>(first, 0, image.width - 1);
    const int64_t inside_last = std::clamp<int64_t>(last, 0, image.width - 1);
    kept.resize(static_cast<size_t>(last - first + 1) * 4);
    mixed_ = kept.data();
    const auto mix = [&](float* out, int64_t column, size_t channels) {
        const uint8_t* const a = upper + column * 4;
        const uint8_t* const b = lower + column * 4;
        for (size_t i = 0; i < channels; ++i)
            out[i] = static_cast<float>(a[i]) * rest + static_cast<float>(b[i]) * share;
    };
    const auto place = [&](int64_t column) { return kept.data() + (column - first) * 4; };
    mix(place(inside_first), inside_first, static_cast<size_t>(inside_last - inside_first + 1) * 4);
    for (int64_t column = first; column < inside_first; ++column)
        std::copy_n(place(inside_first), 4, place(column));
    for (int64_t column = inside_last + 1; column <= last; ++column)
        std::copy_n(place(inside_last), 4, place(column));
}

uint32_t filtered_row::pixel(int64_t column, int64_t fraction) const
{
    const float* const at = mixed_ + (column - first_) * 4;
    floats left;
    floats right;
    std::memcpy(&left, at, sizeof left);
    std::memcpy(&right, at + 4, sizeof right);
    const float share = static_cast<float>(fraction) / static_cast<float>(one);
    const words whole =
        __builtin_convertvector(left * all_channels(1 - share) + right * all_channels(share) + 0.5f, words);
    return low_bytes(whole);
}

} // namespace kalix::device::raster

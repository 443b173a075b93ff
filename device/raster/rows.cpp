// The moving of rows, built once for each instruction set, and at the end the functions that choose between these.
//
// Vectors are of up to 16 pixels. A run that is no whole number of them ends with a vector that lies over the one
// before, which draws the same pixels once more; a run shorter than a vector goes through a copy on the stack or pixel
// by pixel.

#include "device/raster/rows.h"

#include <algorithm>
#include <hwy/foreach_target.h> // includes this file once for each instruction set; the build names it
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace kalix::device::raster {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using pixels = hn::CappedTag<uint32_t, block_pixels>;
using vector = hn::Vec<pixels>;

constexpr pixels d;

#if HWY_TARGET == HWY_SCALAR

// A machine whose vectors are of one pixel: channel by channel.
vector load(const std::byte* from)
{
    return hn::Set(d, load_pixel(from));
}

void store(vector value, std::byte* to)
{
    const uint32_t word = hn::GetLane(value);
    std::memcpy(to, &word, sizeof word);
}

// Calls work(a channel of each) for what becomes that channel, of at most 255.
template <typename function>
vector by_channel(vector a, vector b, const function& work)
{
    uint32_t result = 0;
    for (int shift = 0; shift < 32; shift += 8)
        result |= work(hn::GetLane(a) >> shift & 255, hn::GetLane(b) >> shift & 255) << shift;
    return hn::Set(d, result);
}

vector over(vector source, vector under)
{
    const uint32_t alpha = hn::GetLane(source) >> 24;
    return by_channel(source, under,
                      [alpha](uint32_t a, uint32_t b) { return (a * alpha + b * (255 - alpha) + 127) / 255; });
}

vector picked(const texel_row& row, const int32_t* columns)
{
    return load(row.texels + static_cast<size_t>(*columns) * 4);
}

vector mixed(vector from, vector to, vector shares)
{
    const auto share = static_cast<int32_t>(hn::GetLane(shares) & 0x7FFF);
    return by_channel(from, to, [share](uint32_t a, uint32_t b) {
        const int32_t way = static_cast<int32_t>(b) - static_cast<int32_t>(a);
        return a + static_cast<uint32_t>((way * share + (1 << (share_bits - 1))) >> share_bits);
    });
}

vector filtered(const texel_row& row, const int32_t* left, const int32_t* right, const uint32_t* shares)
{
    return mixed(picked(row, left), picked(row, right), hn::Set(d, *shares));
}

#else

using halves = hn::Repartition<uint16_t, pixels>; // two of a pixel's channels in the two halves of its word
using signed_halves = hn::Repartition<int16_t, pixels>;
using bytes = hn::Repartition<uint8_t, pixels>;
using half_vector = hn::Vec<halves>;

constexpr halves d16;
constexpr signed_halves di16;

vector load(const std::byte* from)
{
    return hn::BitCast(d, hn::LoadU(bytes{}, reinterpret_cast<const uint8_t*>(from)));
}

void store(vector value, std::byte* to)
{
    hn::StoreU(hn::BitCast(bytes{}, value), bytes{}, reinterpret_cast<uint8_t*>(to));
}

// Channels 0 and 2 of pixels, or 1 and 3, in halves; and back.
half_vector even_channels(vector v)
{
    return hn::BitCast(d16, hn::And(v, hn::Set(d, 0x00FF00FFu)));
}
half_vector odd_channels(vector v)
{
    return hn::ShiftRight<8>(hn::BitCast(d16, v));
}
vector joined(half_vector even, half_vector odd)
{
    return hn::BitCast(d, hn::Or(even, hn::ShiftLeft<8>(odd)));
}

// v / 255, rounded to nearest, for v of at most 255 x 255: (v + 128) x 257 / 65536.
half_vector divided(half_vector v)
{
    return hn::MulHigh(hn::Add(v, hn::Set(d16, 128)), hn::Set(d16, 257));
}

// Pixels blended by the source's alpha. A weighed sum of bytes never lies half way between two, so that
// integers round as the general way's floats do.
vector over(vector source, vector under)
{
    const vector high = hn::ShiftRight<24>(source);
    const half_vector alpha = hn::BitCast(d16, hn::Or(high, hn::ShiftLeft<16>(high)));
    const half_vector rest = hn::Xor(alpha, hn::Set(d16, 255));
    const auto blended = [&](half_vector a, half_vector b) {
        return divided(hn::Add(hn::Mul(a, alpha), hn::Mul(b, rest)));
    };
    return joined(blended(even_channels(source), even_channels(under)),
                  blended(odd_channels(source), odd_channels(under)));
}

using column_numbers = hn::RebindToSigned<pixels>;
using column_vector = hn::Vec<column_numbers>;

constexpr column_numbers di;

// Where a vector's worth of texels begins that holds these columns, or most, and ends so many before the row does.
// Between two seams of a texture columns grow or fall steadily, so that the first and the last say where it is.
size_t window_of(const texel_row& row, const int32_t* columns, size_t margin)
{
    const size_t lanes = hn::Lanes(d);
    const auto first = static_cast<size_t>(std::min(columns[0], columns[lanes - 1]));
    // Moved back where it would reach behind the row: texels there are not read.
    return row.width >= lanes + margin ? std::min(first, row.width - lanes - margin) : 0;
}

// Bits that are set where a place does not lie in a vector.
column_vector beyond(column_vector place)
{
    return hn::And(place, hn::Set(di, ~static_cast<int32_t>(hn::Lanes(d) - 1)));
}

vector gathered(const texel_row& row, column_vector columns)
{
    return hn::GatherIndex(d, reinterpret_cast<const uint32_t*>(row.texels), columns);
}

// Texels by their columns, out of one vector where they lie close together: one load and a permutation, where a gather
// costs a load a lane.
vector picked(const texel_row& row, const int32_t* columns)
{
    const size_t window = window_of(row, columns, 0);
    const auto column = hn::LoadU(di, columns);
    const auto place = hn::Sub(column, hn::Set(di, static_cast<int32_t>(window)));
    if (row.width >= hn::Lanes(d) && hn::AllTrue(di, hn::Eq(beyond(place), hn::Zero(di))))
        return hn::TableLookupLanes(load(row.texels + window * 4), hn::IndicesFromVec(d, place));
    return gathered(row, column);
}

// From one to the other by shares, rounded to nearest: a difference of bytes and a share of 15 bits are signed halves.
vector mixed(vector from, vector to, vector shares)
{
    const auto by = hn::BitCast(di16, shares);
    const auto half = [&](half_vector a, half_vector b) {
        const auto way = hn::MulFixedPoint15(hn::BitCast(di16, hn::Sub(b, a)), by);
        return hn::Add(a, hn::BitCast(d16, way));
    };
    return joined(half(even_channels(from), even_channels(to)), half(odd_channels(from), odd_channels(to)));
}

// Mixes neighbours: out of two vectors, one texel apart, where they lie close together.
vector filtered(const texel_row& row, const int32_t* left, const int32_t* right, const uint32_t* shares)
{
    const size_t window = window_of(row, left, 1);
    const auto first = hn::LoadU(di, left);
    const auto second = hn::LoadU(di, right);
    const auto share = hn::LoadU(d, shares);
    const auto place = hn::Sub(first, hn::Set(di, static_cast<int32_t>(window)));
    // 0 where the right texel follows the left one, which at the texture's edge it does not.
    const auto apart = hn::Xor(hn::Sub(second, first), hn::Set(di, 1));
    if (row.width <= hn::Lanes(d) || !hn::AllTrue(di, hn::Eq(hn::Or(beyond(place), apart), hn::Zero(di))))
        return mixed(gathered(row, first), gathered(row, second), share);
    const std::byte* const texels = row.texels + window * 4;
    const auto at = hn::IndicesFromVec(d, place);
    return mixed(hn::TableLookupLanes(load(texels), at), hn::TableLookupLanes(load(texels + 4), at), share);
}

#endif

// The first few pixels of what may end there: a whole vector's load could leave the image.
vector load_some(const std::byte* from, size_t count)
{
    std::byte whole[block_pixels * 4] = {};
    std::memcpy(whole, from, count * 4);
    return load(whole);
}

void store_some(vector value, std::byte* to, size_t count)
{
    std::byte whole[block_pixels * 4];
    store(value, whole);
    std::memcpy(to, whole, count * 4);
}

// How many pixels of a run lie before the first whole vector of the target's memory: a store that crosses two
// cache lines costs two.
size_t pixels_before_vector(const std::byte* to)
{
    const size_t vector_bytes = hn::Lanes(d) * 4;
    return (vector_bytes - reinterpret_cast<uintptr_t>(to) % vector_bytes) / 4;
}

// Calls work(first pixel) for vectors that cover a run, aligned but for the first and the last; these may lie over
// others. False for a run shorter than a vector.
template <typename function>
bool for_each_vector(const std::byte* to, size_t count, const function& work)
{
    const size_t lanes = hn::Lanes(d);
    if (count < lanes)
        return false;
    work(0);
    for (size_t i = pixels_before_vector(to); i < count - lanes; i += lanes)
        work(i);
    work(count - lanes);
    return true;
}

void fill(std::byte* to, size_t count, uint32_t word)
{
    const vector value = hn::Set(d, word);
    if (!for_each_vector(to, count, [&](size_t i) { store(value, to + i * 4); }))
        store_some(value, to, count);
}

void replace(std::byte* to, size_t count, uint32_t word, uint32_t kept)
{
    const vector set = hn::Set(d, word & ~kept);
    const vector mask = hn::Set(d, kept);
    const auto replaced = [&](vector old) { return hn::Or(hn::And(old, mask), set); };
    if (!for_each_vector(to, count, [&](size_t i) { store(replaced(load(to + i * 4)), to + i * 4); }))
        store_some(replaced(load_some(to, count)), to, count);
}

void copy(const std::byte* from, std::byte* to, size_t count, uint32_t alpha)
{
    const vector set = hn::Set(d, alpha);
    if (!for_each_vector(to, count, [&](size_t i) { store(hn::Or(load(from + i * 4), set), to + i * 4); }))
        store_some(hn::Or(load_some(from, count), set), to, count);
}

void blend(const std::byte* from, std::byte* to, size_t count, uint32_t alpha, uint32_t hidden)
{
    const size_t lanes = hn::Lanes(d);
    const vector source_alpha = hn::Set(d, alpha);
    const vector under_alpha = hn::Set(d, hidden);
    const auto blended = [&](vector source, vector under) {
        return over(hn::Or(source, source_alpha), hn::Or(under, under_alpha));
    };
    if (count < lanes)
        return store_some(blended(load_some(from, count), load_some(to, count)), to, count);
    // The first and the last vector lie over others: they take what is under them before anything is drawn.
    const size_t end = count - lanes;
    const vector first = blended(load(from), load(to));
    const vector last = blended(load(from + end * 4), load(to + end * 4));
    for (size_t i = pixels_before_vector(to); i < end; i += lanes)
        store(blended(load(from + i * 4), load(to + i * 4)), to + i * 4);
    store(first, to);
    store(last, to + end * 4);
}

void pick(const texel_row& row, std::span<const int32_t> columns, std::byte* to, uint32_t alpha)
{
    const vector set = hn::Set(d, alpha);
    const auto work = [&](size_t i) { store(hn::Or(picked(row, columns.data() + i), set), to + i * 4); };
    if (for_each_vector(to, columns.size(), work))
        return;
    for (const int32_t column : columns) {
        const uint32_t word = load_pixel(row.texels + static_cast<size_t>(column) * 4) | alpha;
        std::memcpy(to, &word, sizeof word);
        to += sizeof word;
    }
}

void across(const texel_row& row, const int32_t* left, const int32_t* right, const uint32_t* shares, std::byte* to,
            size_t blocks)
{
    for (size_t i = 0; i < blocks * block_pixels; i += hn::Lanes(d))
        store(filtered(row, left + i, right + i, shares + i), to + i * 4);
}

void down(const std::byte* upper, const std::byte* lower, uint32_t share, std::byte* to, size_t count, uint32_t alpha)
{
    const vector by = hn::Set(d, share | share << 16);
    const vector set = hn::Set(d, alpha);
    const auto result = [&](vector a, vector b) { return hn::Or(mixed(a, b, by), set); };
    const auto work = [&](size_t i) { store(result(load(upper + i * 4), load(lower + i * 4)), to + i * 4); };
    if (!for_each_vector(to, count, work))
        store_some(result(load_some(upper, count), load_some(lower, count)), to, count);
}

} // namespace
} // namespace HWY_NAMESPACE
} // namespace kalix::device::raster
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kalix::device::raster {
namespace {

HWY_EXPORT(fill);
HWY_EXPORT(replace);
HWY_EXPORT(copy);
HWY_EXPORT(blend);
HWY_EXPORT(pick);
HWY_EXPORT(across);
HWY_EXPORT(down);

} // namespace

void fill_run(std::byte* to, size_t count, uint32_t word)
{
    HWY_DYNAMIC_DISPATCH(fill)(to, count, word);
}

void replace_bits(std::byte* to, size_t count, uint32_t word, uint32_t kept)
{
    HWY_DYNAMIC_DISPATCH(replace)(to, count, word, kept);
}

void copy_run(const std::byte* from, std::byte* to, size_t count, uint32_t alpha)
{
    HWY_DYNAMIC_DISPATCH(copy)(from, to, count, alpha);
}

void blend_run(const std::byte* from, std::byte* to, size_t count, uint32_t alpha, uint32_t hidden)
{
    HWY_DYNAMIC_DISPATCH(blend)(from, to, count, alpha, hidden);
}

void pick_run(const texel_row& row, std::span<const int32_t> columns, std::byte* to, uint32_t alpha)
{
    HWY_DYNAMIC_DISPATCH(pick)(row, columns, to, alpha);
}

void filter_across(const texel_row& row, const int32_t* left, const int32_t* right, const uint32_t* shares,
                   std::byte* to, size_t blocks)
{
    HWY_DYNAMIC_DISPATCH(across)(row, left, right, shares, to, blocks);
}

void filter_down(const std::byte* upper, const std::byte* lower, uint32_t share, std::byte* to, size_t count,
                 uint32_t alpha)
{
    HWY_DYNAMIC_DISPATCH(down)(upper, lower, share, to, count, alpha);
}

} // namespace kalix::device::raster
#endif

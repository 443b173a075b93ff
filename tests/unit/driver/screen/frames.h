// The words of a present, written from the rules of the pass: what the driver must have sent.
#pragma once

#include "tests/unit/driver/support.h"

#include <bit>
#include <cmath>

namespace kalix::test {

inline uint32_t f(float value)
{
    return std::bit_cast<uint32_t>(value);
}

inline stream tail_of(const stream& of, size_t count)
{
    return {of.end() - static_cast<std::ptrdiff_t>(std::min(count, of.size())), of.end()};
}

// Builds a stream, a command at a time, for a screen and a zoom.
struct frame_words {
    uint32_t width = 64, height = 48; // screen
    float zoom = 1;
    stream out{};

    frame_words& command(uint32_t id, const stream& body)
    {
        const stream added = test::command(id, body);
        out.insert(out.end(), added.begin(), added.end());
        return *this;
    }

    frame_words& define(uint32_t sid, uint32_t flags, uint32_t format, uint32_t w, uint32_t h)
    {
        return command(1040, {sid, flags, format, 1, 0, 0, 0, 0, 0, w, h, 1});
    }

    frame_words& objects(uint32_t surface_width, uint32_t surface_height)
    {
        command(1045, {246});
        define(32747, 32, 1, surface_width, surface_height);
        define(32748, 0, 8, surface_width, surface_height);
        define(32749, 16, 37, 1024, 1);
        return define(32750, 8, 37, 256, 1);
    }

    frame_words& states(bool blend)
    {
        stream body = {246, 1, 0, 2, 0, 35, 1, 9, 0, 5, blend};
        if (blend)
            body.insert(body.end(), {32, 5, 33, 6, 34, 1});
        return command(1049, body);
    }

    frame_words& matrices(bool turned)
    {
        // Column-wise rotation by the single-precision quarter turn, then the move onto the screen.
        const float cs = cosf(1.5707964f);
        const float sn = sinf(1.5707964f);
        stream view = {246, 2, f(1), 0, 0, 0, 0, f(1), 0, 0, 0, 0, f(1), 0, 0, 0, f(-0.5f), f(1)};
        if (turned) {
            view[2] = view[7] = f(cs);
            view[3] = f(sn);
            view[6] = f(-sn);
            view[14] = f(static_cast<float>(width));
        }
        command(1047, view);
        command(1047, {246, 1, f(1), 0, 0, 0, 0, f(1), 0, 0, 0, 0, f(1), 0, 0, 0, 0, f(1)});
        const float w = static_cast<float>(width);
        const float h = static_cast<float>(height);
        return command(1047, {246, 3, f(2 / w), 0, 0, 0, 0, f(2 / -h), 0, 0, 0, 0, f(-2.0f / 20.0f), 0, f(-w / w),
                              f(-h / -h), f(-0.0f), f(1)});
    }

    frame_words& texture(uint32_t sid, bool blend)
    {
        const uint32_t filter = zoom == 1 ? 1 : 2;
        const stream blended = {1, sid, 2, 2, 3, 4, 5, 2, 6, 4, 12, filter, 11, filter, 8, 3, 9, 3};
        const stream opaque = {1, sid, 2, 4, 3, 4, 4, 3, 5, 2, 6, 3, 12, filter, 11, filter, 8, 3, 9, 3};
        stream body = {246};
        const stream& pairs = blend ? blended : opaque;
        for (size_t i = 0; i < pairs.size(); i += 2)
            body.insert(body.end(), {0, pairs[i], pairs[i + 1]});
        return command(1051, body);
    }

    frame_words& setup(uint32_t sid)
    {
        command(1050, {246, 2, 32747, 0, 0});
        command(1050, {246, 0, 32748, 0, 0});
        command(1055, {246, 0, 0, width, height});
        command(1048, {246, f(-10), f(10)});
        command(1052, {246, 4, f(1), f(1), f(1), f(1), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
        states(false);
        command(1057, {246, 3, 0, f(1), 0, 0, 0, width, height});
        return matrices(false).texture(sid, false);
    }

    // Sends a slot's vertices and indices, staged one behind the other from an offset of region 1 on.
    frame_words& upload(uint32_t region, uint32_t slot, uint32_t offset)
    {
        command(1044, {region, offset, 0, 32749, 0, 0, 1, slot * 256, 0, 0, 64, 1, 1, 0, 0, 0});
        return command(1044, {region, offset + 64, 0, 32750, 0, 0, 1, slot * 64, 0, 0, 8, 1, 1, 0, 0, 0});
    }

    frame_words& draw(uint32_t slot)
    {
        const uint32_t at = slot * 256;
        return command(1063, {246, 3, 1,                                          //
                              6,   0, 0,     0,         32749, at,      16, 0, 0, //
                              1,   0, 5,     0,         32749, at + 4,  16, 0, 0, //
                              4,   0, 10,    0,         32749, at + 12, 16, 0, 0, //
                              6,   2, 32750, slot * 64, 2,     2,       0});
    }

    // A transfer between a surface and the framebuffer, or the other way (1), one and the same box in both.
    frame_words& transfer(uint32_t offset, uint32_t pitch, uint32_t sid, uint32_t way, uint32_t x, uint32_t y,
                          uint32_t w, uint32_t h)
    {
        return command(1044, {0xFFFFFFFE, offset, pitch, sid, 0, 0, way, x, y, 0, w, h, 1, x, y, 0});
    }

    frame_words& overlay(uint32_t sid, bool turned) { return matrices(turned).states(true).texture(sid, true); }

    frame_words& finish() { return matrices(false).states(false); }

    frame_words& present(int32_t x, int32_t y, uint32_t w, uint32_t h)
    {
        return command(1058, {32747, static_cast<uint32_t>(x), static_cast<uint32_t>(y), w, h, 0, 0});
    }
    frame_words& present() { return present(0, 0, width, height); }
};

} // namespace kalix::test

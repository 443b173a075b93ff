// Sizes on command lines: "WxH", pixels.
#pragma once

#include <charconv>
#include <cstdint>
#include <string_view>

namespace kalix::tools {

// False, and nothing changed, when the text is no such size.
inline bool parse_size(std::string_view text, uint32_t& width, uint32_t& height)
{
    const size_t cross = text.find('x');
    if (cross == std::string_view::npos)
        return false;
    const auto number = [](std::string_view part, uint32_t& out) {
        const auto [end, error] = std::from_chars(part.data(), part.data() + part.size(), out);
        return error == std::errc{} && end == part.data() + part.size();
    };
    uint32_t w = 0;
    uint32_t h = 0;
    if (!number(text.substr(0, cross), w) || !number(text.substr(cross + 1), h))
        return false;
    width = w;
    height = h;
    return true;
}

} // namespace kalix::tools

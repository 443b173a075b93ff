// Numbers that the environment gives.
#pragma once

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>

namespace kalix {

// A decimal number of least to most and nothing else: "12x" is a mistake, not 12. None for any other text.
inline std::optional<uint32_t> number_in(std::string_view text, uint32_t least, uint32_t most)
{
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size() || value < least || value > most)
        return std::nullopt;
    return value;
}

// What a variable says, or otherwise when it is not set. Of a value that cannot be read, complain(value) is told,
// and otherwise holds.
template <typename function>
uint32_t environment_number(const char* name, uint32_t least, uint32_t most, uint32_t otherwise,
                            const function& complain)
{
    const char* const given = std::getenv(name);
    if (!given)
        return otherwise;
    const std::optional<uint32_t> value = number_in(given, least, most);
    if (!value)
        complain(given);
    return value.value_or(otherwise);
}

} // namespace kalix

#include "driver/state/settings.h"

#include <charconv>
#include <cstdlib>
#include <string_view>

namespace kalix {
namespace {

constexpr uint32_t max_delay_us = 1'000'000;
constexpr uint32_t max_delay_strict_us = 10'000;

uint32_t number_from(const char* name, uint32_t largest, uint32_t otherwise)
{
    const char* const given = std::getenv(name);
    if (!given)
        return otherwise;
    const std::string_view text{given};
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error == std::errc{} && end == text.data() + text.size() && value <= largest)
        return value;
    slogf(log_code, log_warning, "kalix: %s=\"%s\" is not a number of 0 to %u, using %u", name, given, largest,
          otherwise);
    return otherwise;
}

} // namespace

driver_settings read_settings()
{
    const bool strict = number_from("KALIX_STRICT", 1, 0) != 0;
    return {strict, number_from("KALIX_MAX_DELAY_US", UINT32_MAX, strict ? max_delay_strict_us : max_delay_us)};
}

} // namespace kalix

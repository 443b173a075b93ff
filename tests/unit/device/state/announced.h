#pragma once

#include "device/state/capabilities.h"

#include <array>
#include <map>

namespace kalix::test {

// What is announced, by index: the record, walked as a client walks it.
inline std::map<uint32_t, uint32_t> announced()
{
    std::array<uint32_t, device::capability_area_words> area;
    device::write_capabilities(area);
    std::map<uint32_t, uint32_t> values;
    for (uint32_t at = 2; at < area[0]; at += 2)
        values[area[at]] = area[at + 1];
    return values;
}

} // namespace kalix::test

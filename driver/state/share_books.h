// What the Driver state record keeps of the shares that clients hold; driver/objects/shares.h says what they are.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace kalix {

enum class share_kind : uint32_t { command_buffer, readback_destination, dma_buffer };
inline constexpr size_t share_kinds = 3;

struct share_holder; // a client, as long as anything is charged to it

struct share_books {
    uint32_t of_a_kind = 0; // shares of every kind
    std::array<uint32_t, share_kinds> taken{};
    std::array<uint64_t, share_kinds> refused{}; // times that a bound was reached
    share_holder* first = nullptr;               // owned, until its last share comes back
};

} // namespace kalix

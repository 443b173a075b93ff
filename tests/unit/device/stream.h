// A writer of command streams, for the tests of the device and the fuzzer.
#pragma once

#include "svga/bus.h"

#include <kalix/svga3d_types.h>
#include <span>
#include <vector>

namespace kalix::test {

// Commands, one behind the other.
class stream {
public:
    template <typename... records>
    stream& add(const records&... each)
    {
        (append(&each, sizeof each), ...);
        return *this;
    }
    template <typename record>
    stream& add_list(const std::vector<record>& list)
    {
        append(list.data(), list.size() * sizeof(record));
        return *this;
    }
    // A 3D command with a body of these records.
    template <typename... records>
    stream& command(uint32_t id, const records&... each)
    {
        return add(svga3d_command_header{id, static_cast<uint32_t>((sizeof each + ... + 0))}, each...);
    }
    template <typename record, typename entry>
    stream& command_with_list(uint32_t id, const record& fixed, const std::vector<entry>& list)
    {
        add(svga3d_command_header{id, static_cast<uint32_t>(sizeof fixed + list.size() * sizeof(entry))}, fixed);
        return add_list(list);
    }
    // A surface with one image; several sizes: levels of face 0.
    stream& define_surface(uint32_t sid, uint32_t format, const std::vector<svga3d_size>& levels)
    {
        const svga3d_surface_define definition{sid, 0, format, {static_cast<uint32_t>(levels.size()), 0, 0, 0, 0, 0}};
        return command_with_list(SVGA_3D_CMD_SURFACE_DEFINE, definition, levels);
    }
    stream& define_region(uint32_t id, const std::vector<uint64_t>& pages)
    {
        const auto count = static_cast<uint32_t>(pages.size());
        add(svga_cmd_define_gmr2{SVGA_CMD_DEFINE_GMR2, id, count},
            svga_cmd_remap_gmr2{SVGA_CMD_REMAP_GMR2, id, SVGA_REMAP_GMR2_PPN64, 0, count});
        return add_list(pages);
    }
    stream& dma(const svga3d_surface_dma& transfer, const std::vector<svga3d_copy_box>& boxes)
    {
        return command_with_list(SVGA_3D_CMD_SURFACE_DMA, transfer, boxes);
    }

    std::vector<std::byte> bytes;

private:
    void append(const void* from, size_t count)
    {
        const auto* const begin = static_cast<const std::byte*>(from);
        bytes.insert(bytes.end(), begin, begin + count);
    }
};

// Puts a stream into the ring, as it is, and waits until the device has come to its end.
inline void run_stream(svga_bus& on, const stream& commands)
{
    const std::span<uint32_t> fifo = on.fifo();
    const std::span<std::byte> ring = std::as_writable_bytes(fifo);
    uint32_t next = fifo_load(fifo, SVGA_FIFO_NEXT_CMD);
    for (const std::byte each : commands.bytes) {
        ring[next] = each;
        next = next + 1 == fifo[SVGA_FIFO_MAX] ? fifo[SVGA_FIFO_MIN] : next + 1;
    }
    fifo_store(fifo, SVGA_FIFO_NEXT_CMD, next);
    on.ring_doorbell();
    on.write_register(SVGA_REG_SYNC, 1);
}

} // namespace kalix::test

#include "driver/objects/parameters.h"

#include "platform/files/shared_memory.h"
#include "svga/svga.h"

#include <algorithm>
#include <atomic>

namespace kalix {
namespace {

constexpr uint32_t register_area_min = 28; // bytes: the area must reach past the 3D version
constexpr uint32_t major_version_2 = 0x20000;
constexpr uint32_t caps_words = SVGA_FIFO_3D_CAPS_LAST - SVGA_FIFO_3D_CAPS + 1;
static_assert(caps_words * sizeof(uint32_t) == sizeof(fifomap_caps_rep));

uint64_t no_value()
{
    return 0;
}

// By number; the first two have no value here and are answered with 0.
using parameter = uint64_t (*)();
constexpr parameter parameters[] = {
    no_value,
    no_value,
    [] { return static_cast<uint64_t>(vmw_fifo_have_3d()); },
    [] { return uint64_t{_globals.svga_device->capabilities}; },
    [] { return uint64_t{fifo_register(SVGA_FIFO_CAPABILITIES)}; },
    [] { return uint64_t{_globals.svga_device->fb_bytes}; },
    [] { return uint64_t{fifo_register(SVGA_FIFO_3D_HWVERSION)}; },
};
static_assert(std::size(parameters) == KALIX_PARAM_LAST + 1);

// Whether the capability area holds a record of device capabilities. The walk stays inside the area, and ends: every
// length but 0 leads on.
bool has_device_capabilities(const fifomap_caps_rep& area)
{
    for (uint32_t at = 0; caps_words - at >= 2 && area.words[at] != 0;) {
        const uint32_t length = area.words[at];
        const uint32_t type = area.words[at + 1];
        if (type >= SVGA3DCAPS_RECORD_DEVCAPS_MIN && type <= SVGA3DCAPS_RECORD_DEVCAPS_MAX)
            return true;
        if (length >= caps_words - at)
            return false;
        at += length;
    }
    return false;
}

} // namespace

// The acquire orders it behind what the device wrote before, as a fence's results.
uint32_t fifo_register(uint32_t index)
{
    return std::atomic_ref{_globals.svga_device->fifo[index]}.load(std::memory_order_acquire);
}

int vmw_fifo_have_3d()
{
    return _globals.svga_device->capabilities & SVGA_CAP_EXTENDED_FIFO &&
           fifo_register(SVGA_FIFO_MIN) > register_area_min && fifo_register(SVGA_FIFO_3D_HWVERSION) >= major_version_2;
}

int vmw_getparam_ioctl(client_record* client, getparam_req* req)
{
    if (!client || !req)
        return status_invalid;
    if (req->param >= std::size(parameters)) {
        slogf(log_code, log_error, "kalix: vmw_getparam_ioctl: illegal kalix get param request: %d",
              static_cast<int>(req->param));
        return status_invalid;
    }
    req->value = parameters[req->param]();
    return 0;
}

int nebo_getparam_fifomap(client_record* client, fifomap_req* req)
{
    // The first page and one word more: that is the bound which clients know, and the FIFO is longer.
    if (!client || !req || uint64_t{req->index} * sizeof(uint32_t) > platform::getpagesize())
        return status_invalid;
    req->value = fifo_register(req->index);
    return 0;
}

int nebo_getparam_fifomap_caps(client_record* client, fifomap_caps_rep* rep)
{
    if (!client || !rep)
        return status_invalid;
    // A copy, so that what was looked through is what is replied.
    fifomap_caps_rep area;
    for (uint32_t i = 0; i < caps_words; ++i)
        area.words[i] = fifo_register(SVGA_FIFO_3D_CAPS + i);
    if (!has_device_capabilities(area))
        return status_invalid;
    *rep = area;
    return 0;
}

} // namespace kalix

// Surfaces: device-side images, named by a surface id (sid) and shared between clients by reference.
//
// A record owns its size list, its sid when that came from the pool, and the readback destination that the
// first readback opened (readback.h). Everything here runs under the device mutex, where the FIFO
// commands are written too.
#pragma once

#include "driver/objects/resource.h"

#include <memory>

namespace kalix {

struct surface_record : resource_object { // id: the sid
    uint32_t flags = 0;
    uint32_t format = 0;
    uint32_t face_mips[6] = {};
    std::unique_ptr<surface_size[]> sizes; // mip_count entries, as the client supplied them
    uint32_t mip_count = 0;
    uint8_t client_sid = 0; // 1: the client chose the sid and retains it
    char shm_name[64] = {}; // readback destination, empty until one is opened
    int32_t shm_fd = -1;
    std::byte* shm_map = nullptr;
    uint32_t shm_len = 0;
    share_holder* shm_share = nullptr; // charged with slot and descriptor; its client may have gone
    uint8_t shared = 0;
    uint32_t owner_uid = 0; // user of the client that defined it
    bool presented = false; // it was on the screen once
};

struct surface_dimensions {
    uint32_t width, height; // pixels; 0 x 0 for a surface without valid ones
};

// Size of the first level, or nothing at all when the surface has none or a side of it is 0.
surface_dimensions dimensions_of(const surface_record& surface);

// Bytes per pixel of a format as readback counts them; 0 for compressed, untyped and unknown ones.
uint32_t format_to_bpp(uint32_t format);

// Sends the define command of a filled record. 0, or -12 after a line when there is no FIFO space.
int surface_init(surface_record* surface);

// A surface of the driver's own: one level, in no registry, there until the process ends. None on failure.
surface_record* surface_create_local(uint32_t sid, uint32_t width, uint32_t height, uint32_t format, uint32_t flags);

// Sends the destroy command: 0, or -1 for no surface and without FIFO space.
int surface_destroy_on_hw(surface_record* surface);

// Gives back all that a surface holds; the registry's destroy function. Without FIFO space the device
// keeps the surface, and with it its sid and readback destination stay.
void surface_destroy(resource_object* surface) KALIX_REQUIRES(_globals.device_mutex);

// 0 when the client holds a reference on that sid, else -22.
int surface_check(client_record* client, uint32_t sid) KALIX_REQUIRES(_globals.device_mutex);

// The surface that a client means by a sid, for every request that names one; none when there is none or the
// client may not name it. By default it may name every surface; under strict settings those that its own user
// defined, and as the server's own user all.
surface_record* surface_named(const client_record& client, uint32_t sid) KALIX_REQUIRES(_globals.device_mutex);

// The same, for requests that need the client to hold a reference.
surface_record* surface_held(client_record& client, uint32_t sid) KALIX_REQUIRES(_globals.device_mutex);

// Requests 9, 10 and 11: 0, -22, -12, or -2 for a reference to an unknown sid. The receive id reaches the
// size list behind the payload.
int vmw_surface_define_ioctl(client_record* client, surface_define_req* req, int32_t rcvid)
    KALIX_REQUIRES(_globals.device_mutex);
int vmw_surface_destroy_ioctl(client_record* client, surface_destroy_req* req) KALIX_REQUIRES(_globals.device_mutex);
int vmw_surface_reference_ioctl(client_record* client, surface_reference_req* req)
    KALIX_REQUIRES(_globals.device_mutex);

} // namespace kalix

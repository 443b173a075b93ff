// Debug requests: any surface that the driver knows, looked at and altered.
//
// The requesting client needs no reference; under strict settings it must run as the server's own user.
// Dump and fill use the framebuffer's beginning, which shows until the next present, and hold fifo_lock
// until they have done with it.
#pragma once

#include "driver/objects/surface.h"

#include <span>

namespace kalix {

// Ends debug display and shows the last presented surface again.
void reset_debug_state() KALIX_REQUIRES(_globals.device_mutex);

// Process ids of the clients that hold a surface, in the client table's order, as many as there is room
// for. Returns 1 when there are more, else 0. Takes client_lock, under the device mutex.
int get_surface_pids(const surface_record& surface, std::span<uint32_t> pids);

// Fills the screen, of four bytes a pixel, with one pixel's bytes, and waits until it shows.
void clear_screen(uint8_t b0, uint8_t b1, uint8_t b2, uint8_t b3);

// Requests 1000 to 1005: 0 or -22.
int vmw_debug_reset_debug_state_msg(client_record* client) KALIX_REQUIRES(_globals.device_mutex);
int vmw_debug_show_sid_msg(client_record* client, show_sid_req* req) KALIX_REQUIRES(_globals.device_mutex);
int vmw_debug_get_sid_info_msg(client_record* client, sid_info_req* req) KALIX_REQUIRES(_globals.device_mutex);
int vmw_debug_list_sids_msg(client_record* client, list_sids_req* req) KALIX_REQUIRES(_globals.device_mutex);
int vmw_debug_dump_sid_msg(client_record* client, dump_sid_req* req) KALIX_REQUIRES(_globals.device_mutex);
int vmw_debug_fill_sid_msg(client_record* client, fill_sid_req* req) KALIX_REQUIRES(_globals.device_mutex);

} // namespace kalix

// Device parameters and FIFO registers, as clients ask for them.
//
// Everything is read from the device at the moment of the request; nothing is kept. Handlers run under the device
// mutex.
#pragma once

#include "driver/objects/client.h"

namespace kalix {

// One FIFO register, which the device changes on its own.
uint32_t fifo_register(uint32_t index);

// 1 when the device offers 3D through its FIFO, else 0.
int vmw_fifo_have_3d();

// Requests 0, 201 and 202: 0 or -22.
int vmw_getparam_ioctl(client_record* client, getparam_req* req);
int nebo_getparam_fifomap(client_record* client, fifomap_req* req);
int nebo_getparam_fifomap_caps(client_record* client, fifomap_caps_rep* rep);

} // namespace kalix

// The driver's shared header: the Driver state record, the resource types and the status values.
//
// _globals is the one process-wide record. Locks, outermost first: the device mutex (held by the
// dispatcher around every handler), fifo_lock (building command streams), resource_lock (registry;
// destroy functions run inside it), gmr_lock or id_lock (innermost). client_lock is taken under the
// device mutex or alone, with nothing under it; work_lock is taken alone. None is recursive.
#pragma once

#include "base/lock.h"
#include "driver/state/hashtable.h"
#include "driver/state/id_pool.h"
#include "driver/state/linkedlist.h"
#include "driver/state/share_books.h"
#include "platform/channel/channel.h"
#include "platform/log/log.h"
#include "platform/process.h"
#include "svga/svga.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <kalix/protocol.h>

namespace kalix {

using platform::log_code;
using platform::log_error;
using platform::log_information;
using platform::log_warning;
using platform::slogf;

enum resource_type : uint32_t {
    RESOURCE_CONTEXT = 0,
    RESOURCE_DMA = 1,
    RESOURCE_SURFACE = 2,
    RESOURCE_EXECBUF = 3,
    RESOURCE_OVERLAY = 4,
    RESOURCE_TOTAL = 5
};

// Statuses that handlers answer, as they travel.
inline constexpr int status_invalid = -22;
inline constexpr int status_no_memory = -12;
inline constexpr int status_not_found = -2;

// What the environment asked for, read once at start (settings.h).
struct driver_settings {
    bool strict;           // refuse what a well-behaved client never needs
    uint32_t max_delay_us; // bound of a command buffer's delay
};

// The pools' highest ids. Those of surfaces and contexts are the driver's own, which start-up takes out.
inline constexpr uint32_t surface_id_capacity = 32747;
inline constexpr uint32_t dma_id_capacity = 4096;
inline constexpr uint32_t context_id_capacity = 246;
inline constexpr uint32_t overlay_id_capacity = 8;
// The driver's own objects on the device; the ids are never handed out.
inline constexpr uint32_t driver_context_id = 246;
inline constexpr uint32_t driver_surface_id_first = 32747;
inline constexpr uint32_t driver_surface_id_last = 32751;
inline constexpr uint32_t postprocess_target_sid = 32747; // of the hardware pass
inline constexpr uint32_t postprocess_depth_sid = 32748;
inline constexpr uint32_t postprocess_vertex_sid = 32749;
inline constexpr uint32_t postprocess_index_sid = 32750;
inline constexpr uint32_t self_test_sid = 32751;

inline constexpr uint32_t dirty_gmr_bytes = 0x1000000;        // the largest readback: 2048 x 2048 pixels of 4 bytes
inline constexpr uint32_t dirty_gmr_buffer_bytes = 0x1001000; // and a page, so that an aligned span fits
static_assert(dma_id_capacity + 1 <= SVGA_GMR_IDS);           // every DMA buffer, and the dirty GMR

// What the tables hold; the objects and the message loop define them.
struct client_record;
struct resource_object;
struct surface_record;
struct workitem;

struct present_rectangle { // as a client gave it, pixels of the presented surface
    int32_t x, y, width, height;
};

struct driver_state {
    // Set by the start before a worker runs, and read by anyone after that.
    uint32_t initialized = 0; // 1 once the message loop may run
    char channel_name[64] = {};
    platform::name_attach_t* channel = nullptr;
    int32_t self_coid = 0;                // connection to the own channel, for pulses
    ::svga_device* svga_device = nullptr; // owned by the device library; it and the device write it
    borrowed_mutex device_mutex;          // of the caller of kalix_init
    uint32_t dirty_gmr_id = 0;
    std::byte* dirty_gmr_buffer = nullptr; // its bytes belong to whoever holds the device mutex
    std::byte* dirty_gmr_base = nullptr;   // page-aligned start in it
    uint32_t software_mode = 0;            // 0 whenever requests are served
    uint32_t test_mode = 0;
    driver_settings settings{};

    // Requests between the message loop and the workers.
    platform::semaphore work_sem; // counts what is put on work_queue
    mutex work_lock;
    linkedlist<workitem*>* work_queue KALIX_GUARDED_BY(work_lock) = nullptr; // oldest first

    // The pools lock themselves; see id_pool.h.
    mutex id_lock;
    id_pool surface_ids{};
    id_pool dma_ids{};
    id_pool context_ids{};
    id_pool overlay_ids{};

    // Inner locks: of the table of regions (gmr.cpp), of the counts in the registry (resource.h), and of command
    // streams while they are built.
    mutex gmr_lock;
    mutex resource_lock;
    mutex fifo_lock;

    mutex client_lock;
    hashtable<client_record>* client_table KALIX_GUARDED_BY(client_lock) = nullptr; // by scoid

    // All objects by their id, and each sid that was asked for to the client that asked for it.
    std::array<hashtable<resource_object>*, RESOURCE_TOTAL> resource_tables KALIX_GUARDED_BY(device_mutex){};
    hashtable<client_record>* handed_out_sids KALIX_GUARDED_BY(device_mutex) = nullptr;
    share_books shares KALIX_GUARDED_BY(device_mutex){}; // of mappings

    // The first surface that was defined shared (0: none yet), and who referenced it last.
    uint32_t shared_sid KALIX_GUARDED_BY(device_mutex) = 0;
    client_record* shared_sid_client KALIX_GUARDED_BY(device_mutex) = nullptr;

    // When set, presents first copy a box of the one into what they show, or show the other instead.
    uint32_t debug_copy_sid KALIX_GUARDED_BY(device_mutex) = 0;
    uint32_t debug_show_sid KALIX_GUARDED_BY(device_mutex) = 0;

    // What was presented last; 0: nothing yet. The surface may be gone.
    uint32_t last_present_sid KALIX_GUARDED_BY(device_mutex) = 0;
    present_rectangle last_present_rect KALIX_GUARDED_BY(device_mutex){};

    // Whether the hardware pass has all its objects (1), and its surfaces; see postprocess.h.
    uint32_t postprocess_ready KALIX_GUARDED_BY(device_mutex) = 0;
    std::array<surface_record*, 4> postprocess_surfaces KALIX_GUARDED_BY(device_mutex){};

    uint32_t mipmap_dma_failed KALIX_GUARDED_BY(device_mutex) = 0; // 1 when the capability self-test failed
};

extern driver_state _globals;

} // namespace kalix

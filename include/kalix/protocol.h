/* The wire of the channel "svga_ch": every frame and every record, once, for the driver, the client
 * library, tools and tests alike.
 *
 * All fields are little-endian; client and server share one machine. A message from a client is a
 * frame header, the 12-byte request header, the payload and whatever follows it. A reply is a frame
 * header and at most as many data bytes as the client said it has room for. docs/protocol.md tells
 * the story; the comments here give units and directions (in, out) field by field.
 *
 * What these names mean in every record that has them:
 *   sid  the surface
 *   cid  the context
 *   id, overlay_id  the overlay, 1 to 8
 *   x, y  the left upper pixel
 *   width, height  pixels
 *   depth  slices, 1 of a picture
 *   flags  a sum of enum svga3d_surface_flag
 *   format  enum svga3d_surface_format
 *   ref_count  references of all clients
 *   pad, unused, unused0, unused1  nothing; returned as sent where there is a reply
 *
 * Wants C11 or C++20. */
#pragma once

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Frames: what travels on the socket -------------------------------------------------- */

struct kalix_request_frame {     /* client to server, before each message */
    uint32_t message_bytes;      /* length of the message that follows, at most KALIX_MESSAGE_MAX */
    uint32_t reply_room;         /* most data bytes that the client takes back */
};
static_assert(sizeof(struct kalix_request_frame) == 8, "wire record");

enum kalix_reply_kind {          /* what a reply's value is */
    KALIX_REPLY_STATUS = 0, /* value is the request's status */
    KALIX_REPLY_ERROR = 1   /* value is one of the wire's error numbers, e.g. 89 ENOSYS */
};

struct kalix_reply_frame {       /* server to client, before the reply's data */
    uint32_t kind;               /* enum kalix_reply_kind */
    int32_t value;               /* the status or the error number, as kind says */
    uint32_t data_bytes;         /* never more than the request's reply_room */
};
static_assert(sizeof(struct kalix_reply_frame) == 12, "wire record");

enum kalix_wire_error {          /* error numbers as they travel, whatever the host calls them */
    KALIX_EMSGSIZE = 90,
    KALIX_ENOSYS = 89
};

enum kalix_limits {              /* bounds that a client meets; docs/security.md has all */
    KALIX_MESSAGE_MAX = 1 << 20,     /* bytes of one message */
    KALIX_COMMAND_BUFFER_BYTES = 65536,
    KALIX_SURFACE_MIPS_MAX = 144,    /* mip levels of all faces of one surface */
    KALIX_READBACK_EXTENT_MAX = 2048, /* pixels a side */
    KALIX_OBJECT_BYTES_MAX = 128 << 20, /* of an object made over the connection: 2048 rows of 8192 widest pixels */
    KALIX_OVERLAYS_MAX = 8,          /* in the whole server; overlay ids are 1 to 8 */
    KALIX_DUMP_BYTES_MAX = 511,      /* of one dump */
    KALIX_LIST_ENTRIES = 10,         /* surfaces of one list reply */
    KALIX_INFO_PIDS = 16             /* holders that one description names */
};

/* The first message of a connection: the platform's I/O connect message, answered empty. */
struct kalix_io_connect {
    uint16_t type;               /* KALIX_IO_CONNECT */
    uint16_t subtype;            /* 0 */
};
static_assert(sizeof(struct kalix_io_connect) == 4, "wire record");
enum { KALIX_IO_CONNECT = 0x0100, KALIX_IO_LAST = 0x01FF };

/* ---- The platform's own messages ---------------------------------------------------------- */

/* Answered by the platform itself, with a status as requests are; any other message of this magic is
 * answered with error 89. Shared objects can be had over the connection, for clients who do not reach
 * the files: docs/protocol.md, "Objects without files". */
enum { KALIX_PLATFORM_MAGIC = 0x7F9E2B50 };

enum kalix_platform_message {    /* what is asked of the platform */
    KALIX_WHO = 1,
    KALIX_OBJECT = 2
};

struct kalix_platform_header {   /* before the message's record */
    uint32_t magic;              /* KALIX_PLATFORM_MAGIC */
    uint32_t message;            /* enum kalix_platform_message */
};
static_assert(sizeof(struct kalix_platform_header) == 8, "wire record");

struct kalix_who_rep {           /* 1: reply; the message is its header alone */
    uint32_t process;            /* under which the server knows the sender; names of its objects carry it */
    uint32_t user;               /* the sender's, as the server knows it */
    uint32_t server_process;     /* the server's own, as it knows itself */
    uint32_t zero;               /* 0 */
};
static_assert(sizeof(struct kalix_who_rep) == 16, "wire record");

struct kalix_object_req {        /* 2: answered with the object's descriptor beside the status */
    char name[64];               /* of an object, without a slash, ended by a zero */
    uint32_t bytes;              /* its size when it is made: of a command buffer KALIX_COMMAND_BUFFER_BYTES */
    uint32_t make;               /* 1: made, in the place of one that has the name; 0: the one that has it */
};
static_assert(sizeof(struct kalix_object_req) == 72, "wire record");

/* ---- Requests ---------------------------------------------------------------------------- */

enum { KALIX_REQUEST_MAGIC = 0x7F9E2B4E };

struct kalix_request_header {    /* before each request's payload */
    uint32_t magic;              /* KALIX_REQUEST_MAGIC */
    int32_t command;             /* enum kalix_command */
    int32_t payload_length;      /* bytes that follow; 0 or less means no payload */
};
static_assert(sizeof(struct kalix_request_header) == 12, "wire record");

enum kalix_command {             /* requests; docs/protocol.md has each one's answers */
    KALIX_GETPARAM = 0,
    KALIX_DMABUF_ALLOC = 1,
    KALIX_DMABUF_UNREF = 2,
    KALIX_CONTEXT_DEFINE = 7,
    KALIX_CONTEXT_DESTROY = 8,
    KALIX_SURFACE_DEFINE = 9,
    KALIX_SURFACE_DESTROY = 10,
    KALIX_SURFACE_REFERENCE = 11,
    KALIX_EXECBUF = 12,
    KALIX_FENCE_WAIT = 14,
    KALIX_FENCE_SIGNALLED = 15,
    KALIX_FENCE_UNREF = 16,
    KALIX_PRESENT = 200,
    KALIX_FIFOMAP = 201,
    KALIX_FIFOMAP_CAPS = 202,
    KALIX_ALLOC_SID = 203,
    KALIX_PRESENT_PHYS = 206,
    KALIX_READBACK = 207,
    KALIX_OVERLAY_DEFINE = 208,
    KALIX_OVERLAY_DESTROY = 209,
    KALIX_OVERLAY_VISIBLE = 210,
    KALIX_OOB_PRESENT = 211,
    KALIX_SOFTWARE_MODE = 240,
    KALIX_SVGA_ENABLE = 241,
    KALIX_SET_MODE = 242,
    KALIX_SET_CURSOR = 243,
    KALIX_MOVE_CURSOR = 244,
    KALIX_DEBUG_RESET = 1000,
    KALIX_DEBUG_SHOW_SID = 1001,
    KALIX_DEBUG_SID_INFO = 1002,
    KALIX_DEBUG_LIST_SIDS = 1003,
    KALIX_DEBUG_DUMP_SID = 1004,
    KALIX_DEBUG_FILL_SID = 1005,
    KALIX_DISCONNECT = 0xDEAD    /* releases all that the sender holds */
};

enum kalix_param {               /* what request 0 can be asked for */
    KALIX_PARAM_HAVE_3D = 2,
    KALIX_PARAM_CAPABILITIES = 3,
    KALIX_PARAM_FIFO_CAPABILITIES = 4,
    KALIX_PARAM_FRAMEBUFFER_BYTES = 5,
    KALIX_PARAM_3D_HWVERSION = 6,
    KALIX_PARAM_LAST = 6
};

struct getparam_req {            /* 0: request and reply */
    uint64_t value;              /* out */
    uint32_t param;              /* in: enum kalix_param */
    uint32_t pad;                /* returned as sent */
};
static_assert(sizeof(struct getparam_req) == 16, "wire record");

struct dmabuf_alloc_req {        /* 1: the request is the first four bytes, read as size */
    uint64_t data_offset;        /* in, low 32 bits: bytes wanted; out: where in the object the buffer starts */
    uint32_t handle;             /* out: 1 to 4096; the shared object is "/svga_dma_%d" with it */
    uint32_t gmr_id;             /* out: the region that maps the buffer */
    uint32_t gmr_offset;         /* out: 0 */
    uint32_t handle_echo;        /* out: the handle once more */
};
static_assert(sizeof(struct dmabuf_alloc_req) == 24, "wire record");

struct dmabuf_unref_req {        /* 2 */
    uint32_t handle;             /* as request 1 gave it */
};
static_assert(sizeof(struct dmabuf_unref_req) == 4, "wire record");

struct context_define_req {      /* 7: request and reply */
    uint32_t cid;                /* out */
    uint32_t pad;                /* returned as sent */
};
static_assert(sizeof(struct context_define_req) == 8, "wire record");

struct context_destroy_req {     /* 8 */
    uint32_t cid;
};
static_assert(sizeof(struct context_destroy_req) == 4, "wire record");

struct surface_size {            /* an entry of the size list of request 9 */
    uint32_t width, height, depth;
    uint32_t unused;
};
static_assert(sizeof(struct surface_size) == 16, "wire record");

struct surface_define_req {      /* 9: reply is the first 8 bytes */
    uint32_t flags;              /* in: SVGA3D surface flags; out: the new sid */
    uint32_t format;             /* in: SVGA3D surface format; returned as sent */
    uint32_t mip_levels[6];      /* in: levels of faces 0 to 5, at most 144 together */
    uint32_t sizes_offset_low;   /* in: byte offset of the size list in the whole message, low half */
    uint32_t sizes_offset_high;  /* in: its high half */
    uint32_t unused;
    uint32_t shared;             /* in: non-zero makes it the candidate for the shared surface */
    uint32_t sid;                /* in: the sid wanted, 0 for one of the driver's choosing */
};
static_assert(sizeof(struct surface_define_req) == 52 && offsetof(struct surface_define_req, shared) == 44,
              "wire record");

struct surface_destroy_req {     /* 10 */
    uint32_t sid;
};
static_assert(sizeof(struct surface_destroy_req) == 4, "wire record");

struct surface_reference_req {   /* 11: request and reply */
    uint32_t sid;                /* in: sid; out: the surface's flags */
    uint32_t format;             /* out */
    uint32_t mip_levels[6];      /* out */
    uint32_t pad[6];             /* returned as sent */
};
static_assert(sizeof(struct surface_reference_req) == 56, "wire record");

struct execbuf_req {             /* 12: request; the reply is struct execbuf_rep over it */
    uint64_t buffer_id;          /* low 32 bits: number of the sender's command buffer */
    uint32_t byte_count;         /* command bytes at the buffer's start, at most 65536 */
    uint32_t delay_us;           /* microseconds to wait before the commands are committed */
    uint32_t pad[4];
};
static_assert(sizeof(struct execbuf_req) == 32, "wire record");

struct execbuf_rep {             /* 12: reply, on success only */
    uint32_t fence_handle;       /* sequence number of the fence behind the commands */
    uint32_t fence_flags;        /* 3 */
    uint32_t seqno;              /* the fence once more */
    uint32_t passed_seqno;       /* last fence that the device had passed */
    uint32_t unchanged0;         /* as sent */
    int32_t error;               /* 0 */
    uint32_t unchanged1[2];      /* as sent */
};
static_assert(sizeof(struct execbuf_rep) == sizeof(struct execbuf_req), "one record over the other");

struct fence_wait_req {          /* 14 */
    uint32_t seqno;              /* the fence */
};
static_assert(sizeof(struct fence_wait_req) == 4, "wire record");

struct fence_signalled_req {     /* 15: request and reply */
    uint32_t seqno;              /* in */
    uint32_t flags;              /* not read */
    int32_t signalled;           /* out: 1 when passed */
    uint32_t device_seqno;       /* out: the fence register on which the answer rests */
    uint32_t signal_mask;        /* out: 3 when signalled, else 0 */
    uint32_t pad;                /* returned as sent */
};
static_assert(sizeof(struct fence_signalled_req) == 24, "wire record");

struct present_req {             /* 200; the rectangle, in pixels of the surface, is what the screen shows */
    uint32_t sid;                /* a surface that the sender holds */
    int32_t x, y;
    int32_t width, height;
};
static_assert(sizeof(struct present_req) == 20, "wire record");

struct present_phys_req {        /* 206: copies a rectangle into the framebuffer, rows of the surface's width apart */
    uint32_t sid;                /* a surface that the sender holds */
    uint32_t x, y;               /* pixels, the same in source and destination */
    uint32_t width, height;
    uint32_t pad;                /* not read */
    uint64_t phys_addr;          /* guest physical address of the destination's pixel 0, at most 0x80000000 */
};
static_assert(sizeof(struct present_phys_req) == 32 && offsetof(struct present_phys_req, phys_addr) == 24,
              "wire record");

struct overlay_define_req {      /* 208: request and reply */
    int32_t x, y;                /* top left corner, pixels of the unzoomed screen */
    uint32_t width, height;      /* pixels; read by the software pass alone */
    uint32_t buffer_count;       /* 1 or 2; of two, the second is shown */
    uint32_t id;                 /* out: 1 to 8 */
    uint32_t sid0, sid1;         /* surfaces of the buffers; an unknown one shows nothing */
    uint64_t phys_addr0;         /* guest physical addresses of the buffers' pixels in the framebuffer, 0: none */
    uint64_t phys_addr1;         /* of the second */
};
static_assert(sizeof(struct overlay_define_req) == 48 && offsetof(struct overlay_define_req, phys_addr0) == 32,
              "wire record");

struct overlay_destroy_req {     /* 209: request and reply */
    uint32_t id;
};
static_assert(sizeof(struct overlay_destroy_req) == 4, "wire record");

struct overlay_visible_req {     /* 210 */
    uint32_t id;
    uint32_t visible;            /* 0 hides, anything else shows */
};
static_assert(sizeof(struct overlay_visible_req) == 8, "wire record");

struct oob_present_req {         /* 211: swaps the overlay's two buffers and shows the last picture again */
    uint32_t overlay_id;
};
static_assert(sizeof(struct oob_present_req) == 4, "wire record");

struct svga_enable_req {         /* 241 */
    uint32_t enable;             /* the display: 1 on, 0 off */
};
static_assert(sizeof(struct svga_enable_req) == 4, "wire record");

struct set_mode_req {            /* 242 */
    uint32_t width, height;      /* pixels */
    uint32_t bpp;                /* bits per pixel, 16 or 32 */
};
static_assert(sizeof(struct set_mode_req) == 12, "wire record");

struct set_cursor_req {          /* 243; width x height pixels of premultiplied ARGB follow */
    uint32_t id;                 /* the device has one cursor */
    uint32_t hotspot_x, hotspot_y; /* pixels from the image's top left corner */
    uint32_t width, height;      /* pixels, at most 256 a side */
    uint32_t unused;
};
static_assert(sizeof(struct set_cursor_req) == 24, "wire record");

struct move_cursor_req {         /* 244 */
    uint32_t visible;            /* 0 hides, anything else shows */
    uint32_t x, y;               /* screen pixels */
    uint32_t screen_id;          /* the device has one screen */
};
static_assert(sizeof(struct move_cursor_req) == 16, "wire record");

struct fifomap_req {             /* 201: request and reply */
    uint32_t index;              /* in: FIFO register, 0 to 1024 */
    uint32_t value;              /* out */
};
static_assert(sizeof(struct fifomap_req) == 8, "wire record");

struct fifomap_caps_rep {        /* 202: reply */
    uint32_t words[256];         /* the device's capability records, back to back */
};
static_assert(sizeof(struct fifomap_caps_rep) == 1024, "wire record");

struct alloc_sid_req {           /* 203: reply */
    uint32_t sid;                /* out: 0 when the pool is exhausted */
    uint32_t unused;
};
static_assert(sizeof(struct alloc_sid_req) == 8, "wire record");

struct readback_req {            /* 207; shared memory named "/vm_svga:%u:%u" (process id, number) */
    uint32_t sid;
    uint32_t x, y, w, h;         /* pixels of the surface */
    uint32_t pitch;              /* bytes between destination rows: surface width x bytes per pixel */
    uint64_t shm_number;         /* low 32 bits: number of the sender's shared-memory object */
    uint32_t shm_size;           /* bytes of it to map */
    uint32_t unused0;
    uint64_t fb_offset;          /* destination's offset in the framebuffer when use_shm is 0 */
    uint8_t use_shm;             /* non-zero: the destination is the shared-memory object */
    uint8_t unused1[7];
};
static_assert(sizeof(struct readback_req) == 56 && offsetof(struct readback_req, use_shm) == 48, "wire record");

struct software_mode_req {       /* 240: reply */
    uint32_t software_mode;      /* out: 0 on every server that serves */
    uint32_t unused;
};
static_assert(sizeof(struct software_mode_req) == 8, "wire record");

struct show_sid_req {            /* 1001 */
    uint32_t sid;
};
static_assert(sizeof(struct show_sid_req) == 4, "wire record");

struct sid_info_req {            /* 1002: request and reply */
    uint32_t sid;                /* in */
    uint32_t pids[KALIX_INFO_PIDS]; /* out: processes that hold it, then zeros */
    uint32_t unused0;            /* returned as sent */
    uint32_t width, height, depth; /* out: pixels of the first level */
    uint32_t flags;              /* out: SVGA3D surface flags */
    uint32_t format;             /* out: SVGA3D surface format */
    uint32_t ref_count;          /* out: references of all clients */
    uint32_t unused1;            /* returned as sent */
};
static_assert(sizeof(struct sid_info_req) == 100 && offsetof(struct sid_info_req, width) == 72, "wire record");

struct sid_entry {               /* an entry of reply 1003 */
    uint32_t sid;
    uint32_t width, height, depth; /* pixels of the first level */
    uint32_t flags;
    uint32_t format;
    uint32_t ref_count;
    uint32_t pids[2];            /* the first two holders */
    uint32_t more;               /* 1 when there are others */
};
static_assert(sizeof(struct sid_entry) == 40, "wire record");

struct list_sids_req {           /* 1003: request and reply */
    int32_t first;               /* in: surfaces to skip */
    uint32_t more;               /* out: 1 when others follow */
    struct sid_entry entries[KALIX_LIST_ENTRIES]; /* out: the rest is zero */
};
static_assert(sizeof(struct list_sids_req) == 408, "wire record");

struct dump_sid_req {            /* 1004: request and reply. The surface is laid at the framebuffer's start, its
                                    rows 512 bytes apart, and rows are taken out of there */
    uint32_t sid;                /* in */
    uint32_t offset;             /* in: of the first row in the framebuffer, bytes */
    uint32_t row_bytes;          /* in */
    int32_t stride;              /* in: bytes from row to row */
    uint32_t rows;               /* in: row_bytes x rows is at most 511 */
    uint32_t unused;
    uint8_t data[512];           /* out: the rows, packed */
};
static_assert(sizeof(struct dump_sid_req) == 536 && offsetof(struct dump_sid_req, data) == 24, "wire record");

struct fill_sid_req {            /* 1005: request and reply */
    uint32_t sid;                /* of format X8R8G8B8 or A8R8G8B8 */
    uint32_t pixel;              /* 0xAARRGGBB */
};
static_assert(sizeof(struct fill_sid_req) == 8, "wire record");

#ifdef __cplusplus
}
#endif

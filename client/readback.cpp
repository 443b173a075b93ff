// Pictures back to the client: the server copies into a shared object, the library out of it.
//
// The object holds the surface's rows from the first to the last that readback can reach, packed, and
// is named after the surface, so that every connection of the process finds the one that the server
// has opened. It is kept with the connection until the surface goes.

#include "client/connection.h"
#include "client/shm.h"

#include <algorithm>
#include <array>

using namespace kalix::client_library;

namespace {

// Bytes of a pixel as the server counts them, by format.
constexpr std::array<uint8_t, SVGA3D_FORMAT_MAX> pixel_bytes = {0, 4, 4, 2, 2, 2, 2, 4, 2, 4, 2, 1, 1, 2, 2,
                                                                0, 0, 0, 0, 0, 2, 2, 4, 3, 2, 4, 4, 2, 4, 2,
                                                                4, 4, 1, 2, 4, 2, 4, 0, 4, 4, 4, 8, 4, 4};

struct layout {
    uint32_t pixel_bytes;
    uint32_t pitch; // bytes of a surface row
    uint32_t object_bytes;
};

// Whether width pixels from begin on lie within extent and the reach of readback.
constexpr bool inside(uint32_t begin, uint32_t width, uint32_t extent)
{
    const uint32_t end = std::min<uint32_t>(extent, KALIX_READBACK_EXTENT_MAX);
    return begin <= end && width <= end - begin;
}
static_assert(inside(2047, 1, 4096) && !inside(2047, 2, 4096) && !inside(1, UINT32_MAX, 4096));

int check_area(const kalix_readback_area& area, size_t row_stride, layout& out)
{
    const uint32_t bytes = kalix_readback_pixel_bytes(area.format);
    if (bytes == 0)
        return -ENOTSUP;
    if (!inside(area.x, area.width, area.surface_width) || !inside(area.y, area.height, area.surface_height))
        return -EINVAL;
    if (row_stride < size_t{area.width} * bytes)
        return -EINVAL;
    const uint64_t pitch = uint64_t{area.surface_width} * bytes;
    const uint64_t rows = std::min<uint32_t>(area.surface_height, KALIX_READBACK_EXTENT_MAX);
    if (pitch > UINT32_MAX || pitch * rows > UINT32_MAX)
        return -EINVAL;
    out = {bytes, static_cast<uint32_t>(pitch), static_cast<uint32_t>(pitch * rows)};
    return 0;
}

// The surface's place, made at its first readback.
int place_for(kalix_connection& connection, uint32_t sid, uint32_t bytes, readback_place*& out)
    KALIX_REQUIRES(connection.lock)
{
    readback_place* known =
        find(connection.readback_places, [sid](const readback_place& place) { return place.sid == sid; });
    if (known && known->memory.bytes() >= bytes) {
        out = known;
        return 0;
    }
    // The server keeps to the object that it has, at the size that it had; one that it never took can be made anew.
    if (known && known->is_taken)
        return -EINVAL;
    drop(connection.readback_places, [sid](const readback_place& place) { return place.sid == sid; });
    auto place = make<readback_place>();
    if (!place)
        return -ENOMEM;
    if (const int error = shm_share(connection, readback_name(connection, sid), bytes, place->memory))
        return error;
    place->sid = sid;
    place->next = std::move(connection.readback_places);
    connection.readback_places = std::move(place);
    out = connection.readback_places.get();
    return 0;
}

void copy_rows(const readback_place& place, const kalix_readback_area& area, const layout& rows, void* pixels,
               size_t row_stride)
{
    const size_t row_bytes = size_t{area.width} * rows.pixel_bytes;
    for (uint32_t row = 0; row < area.height; ++row) {
        const size_t from = size_t{area.y + row} * rows.pitch + size_t{area.x} * rows.pixel_bytes;
        std::memcpy(static_cast<std::byte*>(pixels) + row * row_stride, place.memory.data() + from, row_bytes);
    }
}

} // namespace

uint32_t kalix_readback_pixel_bytes(uint32_t format)
{
    return format < pixel_bytes.size() ? pixel_bytes[format] : 0;
}

int kalix_readback(kalix_connection* connection, const kalix_readback_area* area, void* pixels, size_t row_stride)
{
    if (const int error = check_caller(connection))
        return error;
    if (!area || !pixels)
        return -EINVAL;
    layout rows{};
    if (const int error = check_area(*area, row_stride, rows))
        return error;
    if (area->width == 0 || area->height == 0)
        return 0;

    const hold guard{connection->lock};
    readback_place* place = nullptr;
    if (const int error = place_for(*connection, area->sid, rows.object_bytes, place))
        return error;
    readback_req req{};
    req.sid = area->sid;
    req.x = area->x;
    req.y = area->y;
    req.w = area->width;
    req.h = area->height;
    req.pitch = rows.pitch;
    req.shm_number = area->sid;
    req.shm_size = rows.object_bytes;
    req.use_shm = 1;
    if (const int error = call_locked(*connection, KALIX_READBACK, req, 0).result)
        return error;
    place->is_taken = true;
    copy_rows(*place, *area, rows, pixels, row_stride);
    return 0;
}

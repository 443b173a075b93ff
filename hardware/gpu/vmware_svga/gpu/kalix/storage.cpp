#include "hardware/gpu/vmware_svga/gpu/kalix/storage.h"

#include <iterator>
#include <kalix/svga3d_types.h>

namespace kalix {
namespace {

// Bytes of a block, by format.
constexpr uint8_t block_bytes[SVGA3D_FORMAT_MAX] = {
    0, 4, 4, 2,  2, 2, 2, 4, 2, 4, 2, 1, 1, 2, 2, 8, 16, 16, 16, 16, 2, 2,
    4, 3, 8, 16, 4, 2, 4, 2, 4, 4, 1, 2, 4, 4, 8, 1, 4,  4,  4,  8,  4, 4,
};

} // namespace

storage_block storage_of(uint32_t format)
{
    if (format >= std::size(block_bytes))
        return {1, 1, 0};
    if (format >= SVGA3D_DXT1 && format <= SVGA3D_DXT5)
        return {4, 4, block_bytes[format]};
    return {format >= SVGA3D_UYVY ? 2u : 1u, 1, block_bytes[format]};
}

} // namespace kalix

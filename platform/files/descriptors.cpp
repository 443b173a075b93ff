#include "platform/files/descriptors.h"

#include <algorithm>
#include <sys/resource.h>

namespace kalix::platform {

descriptor_shares divide_descriptors()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    // A limit below our own need leaves nothing to divide: everybody is then refused, and nothing fails half-way.
    const size_t shared = limit.rlim_cur > own_descriptors ? static_cast<size_t>(limit.rlim_cur) - own_descriptors : 0;
    const size_t connections = std::min(connections_max, shared / 2);
    const size_t rest = shared - connections;
    const size_t handed = std::min(handed_max, rest / 8);
    return {connections, handed, rest - handed};
}

} // namespace kalix::platform

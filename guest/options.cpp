// Reads the three settings by one rule: a whole number within its bounds, or the default and a line that says so.

#include "guest/options.h"

#include "base/environment.h"

#include <cstdio>

namespace kalix::guest {
namespace {

// Severities are svga.h's.
constexpr int warning = 3;
constexpr uint32_t framebuffer_mib_max = 1024; // the framebuffer ends below the top of 32-bit addresses
constexpr uint32_t memory_mib_max = 65536;     // 64 GiB
constexpr uint32_t threads_max = 64;

uint32_t number_from(svga_log_function log, const char* name, uint32_t largest, uint32_t otherwise)
{
    return environment_number(name, 1, largest, otherwise, [=](const char* given) {
        char line[256];
        std::snprintf(line, sizeof line, "%s=\"%.64s\" is not a number of 1 to %u, using the default", name, given,
                      largest);
        if (log)
            log(warning, line);
    });
}

} // namespace

device_options options_from_environment(svga_log_function log)
{
    const auto mib = [log](const char* name, uint32_t largest, uint32_t otherwise) {
        return uint64_t{number_from(log, name, largest, otherwise)} << 20;
    };
    return {.framebuffer_bytes = mib("SVGA_DEVICE_VRAM", framebuffer_mib_max, 128),
            .surface_memory_bytes = mib("SVGA_DEVICE_MEMORY", memory_mib_max, 2048),
            .threads = number_from(log, "SVGA_DEVICE_THREADS", threads_max, 0),
            .log = log};
}

} // namespace kalix::guest

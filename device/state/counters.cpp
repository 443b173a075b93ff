// The names of the kinds of refusal, and the counting.

#include "device/state/counters.h"

#include <cstdio>
#include <iterator>
#include <kalix/svga3d_types.h>

namespace kalix::device {
namespace {

// In the order of enum kalix_refused, by which they are looked up.
constexpr const char* kinds[] = {
    "unknown command",
    "command too short",
    "no such surface",
    "no such image, or no memory for it",
    "no such context",
    "no such region",
    "outside of what it names",
    "a value that the interface does not have",
    "nothing to draw to",
    "not supported",
    "no memory",
    "a mode that cannot be shown",
    "a cursor that cannot be shown",
};
static_assert(std::size(kinds) == KALIX_REFUSED_CURSOR + 1);
static_assert(std::size(kinds) <= KALIX_SCREEN_REFUSED);
static_assert(SVGA_3D_CMD_LAST - SVGA_3D_CMD_BASE < KALIX_SCREEN_COMMANDS);

constexpr int warning = 3;

} // namespace

void counters::refuse(kalix_refused kind, uint32_t command)
{
    if (values.refused[kind]++ != 0 || !log_)
        return;
    char line[128];
    std::snprintf(line, sizeof line, "device: command %u refused: %s (further ones are only counted)", command,
                  kinds[kind]);
    log_(warning, line);
}

void counters::count_command(uint32_t id)
{
    // Others have no counter; they are refused as unknown.
    if (id >= SVGA_3D_CMD_BASE && id <= SVGA_3D_CMD_LAST)
        ++values.commands[id - SVGA_3D_CMD_BASE];
}

} // namespace kalix::device

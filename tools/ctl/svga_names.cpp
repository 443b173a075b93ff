// Tables in the order of the interface's numbers: a format, command or refusal that is added there without a name here
// does not compile. A server newer than this tool may still send one that is beyond.

#include "tools/ctl/svga_names.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <iterator>
#include <kalix/protocol.h>
#include <kalix/screen.h>
#include <kalix/status.h>
#include <kalix/svga3d_types.h>

namespace kalix::ctl {
namespace {

constexpr std::array formats = {
    "invalid",   "X8R8G8B8",     "A8R8G8B8",    "R5G6B5",  "X1R5G5B5", "A1R5G5B5", "A4R4G4B4",  "Z_D32",
    "Z_D16",     "Z_D24S8",      "Z_D15S1",     "L8",      "L4A4",     "L16",      "L8A8",      "DXT1",
    "DXT2",      "DXT3",         "DXT4",        "DXT5",    "U8V8",     "L6V5U5",   "X8L8V8U8",  "L8V8U8",
    "half ARGB", "float ARGB",   "A2R10G10B10", "V8U8",    "Q8W8V8U8", "CxV8U8",   "X8L8V8U8s", "A2W10V10U10",
    "ALPHA8",    "half R",       "float R",     "half RG", "float RG", "BUFFER",   "Z_D24X8",   "V16U16",
    "G16R16",    "A16B16G16R16", "UYVY",        "YUY2"};
static_assert(formats.size() == SVGA3D_FORMAT_MAX);

constexpr std::array commands = {"surface define",    "surface destroy",
                                 "surface copy",      "surface stretch blit",
                                 "surface dma",       "context define",
                                 "context destroy",   "set transform",
                                 "set z range",       "set render state",
                                 "set render target", "set texture state",
                                 "set material",      "set light data",
                                 "set light enabled", "set viewport",
                                 "set clip plane",    "clear",
                                 "present",           "shader define",
                                 "shader destroy",    "set shader",
                                 "set shader const",  "draw primitives",
                                 "set scissor rect",  "begin query",
                                 "end query",         "wait for query",
                                 "present readback",  "blit surface to screen"};
static_assert(commands.size() == SVGA_3D_CMD_BLIT_SURFACE_TO_SCREEN - SVGA_3D_CMD_SURFACE_DEFINE + 1);

constexpr std::array refusals = {"unknown command", "short command",  "no such surface", "no such image",
                                 "no such context", "no such region", "outside",         "bad value",
                                 "no target",       "not supported",  "no memory",       "mode refused",
                                 "cursor refused"};
static_assert(refusals.size() == KALIX_REFUSED_CURSOR + 1);

constexpr std::array flags = {"cube",    "static",        "dynamic", "index",     "vertex",
                              "texture", "render-target", "depth",   "write-only"};

constexpr std::array reasons = {"other",
                                "no such command",
                                "context not held",
                                "surface not held",
                                "region not held",
                                "does not end where its buffer does"};
static_assert(reasons.size() == KALIX_STATUS_REASON_LENGTH + 1);

constexpr std::array bounds = {"command buffers", "readback destinations", "DMA buffers",
                               "context ids",     "surface ids",           "overlays"};
static_assert(bounds.size() == KALIX_STATUS_BOUNDS);

constexpr std::array events = {"none", "connect",         "disconnect",        "refusal",         "mode",
                               "zoom", "overlay-defined", "overlay-destroyed", "overlay-visible", "display"};
static_assert(events.size() == KALIX_EVENT_DISPLAY + 1);

struct request {
    uint32_t command;
    const char* name;
};
constexpr request requests[] = {{KALIX_GETPARAM, "parameter"},
                                {KALIX_DMABUF_ALLOC, "DMA buffer"},
                                {KALIX_DMABUF_UNREF, "DMA buffer release"},
                                {KALIX_CONTEXT_DEFINE, "context define"},
                                {KALIX_CONTEXT_DESTROY, "context destroy"},
                                {KALIX_SURFACE_DEFINE, "surface define"},
                                {KALIX_SURFACE_DESTROY, "surface destroy"},
                                {KALIX_SURFACE_REFERENCE, "surface reference"},
                                {KALIX_EXECBUF, "command buffer"},
                                {KALIX_FENCE_WAIT, "fence wait"},
                                {KALIX_FENCE_SIGNALLED, "fence question"},
                                {KALIX_PRESENT, "present"},
                                {KALIX_FIFOMAP, "FIFO register"},
                                {KALIX_FIFOMAP_CAPS, "capabilities"},
                                {KALIX_ALLOC_SID, "surface id"},
                                {KALIX_PRESENT_PHYS, "present to an address"},
                                {KALIX_READBACK, "readback"},
                                {KALIX_OVERLAY_DEFINE, "overlay define"},
                                {KALIX_OVERLAY_DESTROY, "overlay destroy"},
                                {KALIX_OVERLAY_VISIBLE, "overlay visible"},
                                {KALIX_OOB_PRESENT, "overlay flip"},
                                {KALIX_SOFTWARE_MODE, "software mode"},
                                {KALIX_SVGA_ENABLE, "display"},
                                {KALIX_SET_MODE, "mode"},
                                {KALIX_SET_CURSOR, "cursor"},
                                {KALIX_MOVE_CURSOR, "cursor move"},
                                {KALIX_DEBUG_RESET, "debug reset"},
                                {KALIX_DEBUG_SHOW_SID, "debug show"},
                                {KALIX_DEBUG_SID_INFO, "debug info"},
                                {KALIX_DEBUG_LIST_SIDS, "debug list"},
                                {KALIX_DEBUG_DUMP_SID, "debug dump"},
                                {KALIX_DEBUG_FILL_SID, "debug fill"}};

template <size_t count>
std::string one_of(const std::array<const char*, count>& names, uint32_t index, const char* kind)
{
    return index < count ? names[index] : fmt::format("{} {}", kind, index);
}

} // namespace

std::string format_name(uint32_t format)
{
    return one_of(formats, format, "format");
}

std::vector<std::string> flag_names(uint32_t bits)
{
    std::vector<std::string> names;
    for (size_t bit = 0; bit < 32; ++bit)
        if (bits >> bit & 1)
            names.push_back(bit < flags.size() ? flags[bit] : fmt::format("bit-{}", bit));
    return names;
}

std::string command_name(uint32_t index)
{
    return one_of(commands, index, "command");
}

std::string refusal_name(uint32_t kind)
{
    return one_of(refusals, kind, "kind");
}

std::string request_name(uint32_t command)
{
    const auto* const found = std::ranges::find(requests, command, &request::command);
    return found != std::end(requests) ? found->name : fmt::format("request {}", command);
}

std::string reason_name(uint32_t reason)
{
    return one_of(reasons, reason, "reason");
}

std::string bound_name(uint32_t bound)
{
    return one_of(bounds, bound, "bound");
}

std::string event_name(uint32_t kind)
{
    return one_of(events, kind, "event");
}

} // namespace kalix::ctl

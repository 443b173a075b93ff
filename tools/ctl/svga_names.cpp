// Tables in the order of the interface's numbers: a format, command or refusal that is added there without a name here
// does not compile. A server newer than this tool may still send one that is beyond.

#include "tools/ctl/svga_names.h"

#include <array>
#include <fmt/format.h>
#include <kalix/screen.h>
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

std::string flags_text(uint32_t bits)
{
    std::string text;
    for (size_t bit = 0; bit < 32; ++bit)
        if (bits >> bit & 1)
            text += (text.empty() ? "" : " ") + (bit < flags.size() ? flags[bit] : fmt::format("bit-{}", bit));
    return text.empty() ? "-" : text;
}

std::string command_name(uint32_t index)
{
    return one_of(commands, index, "command");
}

std::string refusal_name(uint32_t kind)
{
    return one_of(refusals, kind, "kind");
}

} // namespace kalix::ctl

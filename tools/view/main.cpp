// kalix-view: shows a server's screen, in a window or to remote viewers.

#include "tools/command_line.h"
#include "tools/screen/run_directory.h"
#include "tools/view/vnc.h"
#include "tools/view/window.h"

namespace {

using kalix::tools::parameter;
using kalix::tools::value_kind;

constexpr parameter parameters[] = {
    {.name = "--vnc",
     .kind = value_kind::number,
     .value_optional = true,
     .value = "[PORT]",
     .help = "serve VNC viewers, on loopback port PORT or a unix socket",
     .most = UINT16_MAX},
    {.name = "--socket",
     .kind = value_kind::file,
     .value = "PATH",
     .help = "the unix socket of --vnc; otherwise vnc in the run directory",
     .needs = "--vnc"},
    {.name = "--control", .help = "send the pointer to the server as cursor moves; otherwise view only"},
    {.name = "--print-rate", .help = "print the frames a second, once a second"},
    {.name = "--frames",
     .kind = value_kind::number,
     .value = "COUNT",
     .help = "end after so many frames were shown",
     .most = INT64_MAX},
};

constexpr kalix::tools::section sections[] = {
    {"EXIT STATUS",
     R"(0 when the viewer was ended (window closed, INT, TERM), 1 when it could not show the screen, 2 for a wrong
command line.)"},
    {"ENVIRONMENT", R"(KALIX_RUN_DIR     run directory of the server
SDL_VIDEODRIVER   how the window reaches the display: x11, wayland, ...)"},
    {"EXAMPLES", R"(kalix-view                                  a window
kalix-view --vnc 5901 &  vncviewer :1       the same for a VNC viewer on this machine
kalix-view --vnc                            on the socket vnc of the run directory; from elsewhere:
ssh -L 5901:/run/kalix/vnc host             then vncviewer :1 here)"}};

int show(const kalix::tools::arguments& given)
{
    kalix::view::view_options options;
    options.run_directory = kalix::tools::run_directory();
    options.control = given.has("--control");
    options.print_rate = given.has("--print-rate");
    options.frames = given.number<uint64_t>("--frames");
    options.port = given.number<uint16_t>("--vnc");
    options.socket_path = given.text("--socket");
    return given.has("--vnc") ? kalix::view::serve_vnc(options) : kalix::view::show_window(options);
}

constexpr kalix::tools::program kalix_view{
    .name = "kalix-view",
    .summary = "Show the screen of a running kalix server, live.",
    .description =
        R"(A window follows the display mode and the zoom. With --vnc the screen is served to VNC viewers instead, as
many as come: on a unix socket that only this user can open, or on a port of the loopback interface. Nothing
is sent while nothing moves.)",
    .usage = "kalix-view [--vnc [PORT]] [OPTIONS]",
    .parameters = parameters,
    .run = show,
    .sections = sections,
    .asks_server = true,
};

} // namespace

int main(int argc, char** argv)
{
    return kalix::tools::run(kalix_view, argc, argv);
}

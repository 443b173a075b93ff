// kalix-view: shows a server's screen, in a window or to remote viewers.

#include "tools/command_line.h"
#include "tools/screen/run_directory.h"
#include "tools/view/remote.h"
#include "tools/view/window.h"

namespace {

using kalix::tools::parameter;
using kalix::tools::value_kind;

constexpr parameter parameters[] = {
    {.name = "--vnc",
     .kind = value_kind::number,
     .value_optional = true,
     .value = "[PORT]",
     .help = "serve VNC viewers, on loopback port PORT (0: one that is free, printed) or else a unix socket",
     .most = UINT16_MAX},
    {.name = "--web",
     .kind = value_kind::number,
     .value_optional = true,
     .value = "[PORT]",
     .help = "serve browsers, on loopback port PORT (0 or none: one that is free); prints the address to open, which "
             "holds a password made for this run",
     .most = UINT16_MAX},
    {.name = "--listen",
     .kind = value_kind::text,
     .value = "ADDRESS",
     .help = "the numeric address of --web, which other machines may reach",
     .initial = "127.0.0.1",
     .needs = "--web"},
    {.name = "--password-file",
     .kind = value_kind::file,
     .value = "FILE",
     .help = "ask viewers of --vnc or --web for the password in the first line of FILE, 1 to 8 bytes"},
    {.name = "--pages",
     .kind = value_kind::directory,
     .value = "DIR",
     .help = "where noVNC, the page of --web, lies",
     .initial = "/usr/share/novnc",
     .needs = "--web"},
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
     .help = "end after so many frames were shown; 0: never by itself",
     .initial = "0",
     .most = INT64_MAX},
};

constexpr kalix::tools::section sections[] = {
    {"EXIT STATUS",
     R"(0 when the viewer was ended (window closed, INT, TERM), 1 when it could not show the screen or the server
has ended, 2 for a wrong command line.)"},
    {"ENVIRONMENT", R"(KALIX_RUN_DIR     run directory of the server
SDL_VIDEODRIVER   how the window reaches the display: x11, wayland, ...)"},
    {"EXAMPLES", R"(kalix-view                                  a window
kalix-view --vnc 5901 &  vncviewer :1       the same for a VNC viewer on this machine
kalix-view --vnc                            on the socket vnc of the run directory; from elsewhere:
ssh -L 5901:/run/kalix/vnc host             then vncviewer :1 here
kalix-view --web 6080                       in a browser; from elsewhere: ssh -L 6080:localhost:6080 host)"}};

kalix::view::remote_door door_of(const kalix::tools::arguments& given)
{
    using kalix::view::remote_door;
    if (given.has("--web"))
        return remote_door::web;
    return given.text("--vnc").empty() ? remote_door::path : remote_door::port;
}

int show(const kalix::tools::arguments& given)
{
    kalix::view::view_options options;
    options.run_directory = kalix::tools::run_directory();
    options.control = given.has("--control");
    options.print_rate = given.has("--print-rate");
    options.frames = given.number<uint64_t>("--frames");
    const bool web = given.has("--web");
    const bool remote = web || given.has("--vnc");
    if (web && given.has("--vnc"))
        throw kalix::tools::usage_error{"--vnc and --web are two viewers; start one for each"};
    if (!remote && given.has("--password-file"))
        throw kalix::tools::usage_error{"--password-file is for --vnc or --web"};
    options.door = door_of(given);
    options.socket_path = given.text("--socket");
    options.port = given.number<uint16_t>(web ? "--web" : "--vnc");
    if (web)
        options.address = given.text("--listen");
    options.password_file = given.text("--password-file");
    options.pages = given.text("--pages");
    return remote ? kalix::view::serve_remote(options) : kalix::view::show_window(options);
}

constexpr kalix::tools::program kalix_view{
    .name = "kalix-view",
    .summary = "Show the screen of a running kalix server, live.",
    .description =
        R"(A window follows the display mode and the zoom. With --vnc the screen is served to VNC viewers instead, as
many as come: on a unix socket that only this user can open, or on a port of the loopback interface. With
--web a browser shows it: open the address that is printed. Nothing is sent while nothing moves.)",
    .usage = "kalix-view [--vnc [PORT] | --web [PORT]] [OPTIONS]",
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

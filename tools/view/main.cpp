// kalix-view: shows a server's screen, in a window or to remote viewers.

#include "tools/screen/mapped_file.h"
#include "tools/usage.h"
#include "tools/view/view.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <system_error>

namespace {

constexpr int exit_failed = 1;
constexpr int exit_usage = 2;

constexpr const char* description = R"(Show the screen of a running kalix server, live.

A window follows the display mode and the zoom. With --vnc the screen is served to VNC viewers instead, as
many as come: on a unix socket that only this user can open, or on a port of the loopback interface. Nothing
is sent while nothing moves.)";

constexpr const char* footer = R"(
EXIT STATUS
  0 when the viewer was ended (window closed, INT, TERM), 1 when it could not show the screen, 2 for a wrong
  command line.

ENVIRONMENT
  KALIX_RUN_DIR     run directory of the server
  SDL_VIDEODRIVER   how the window reaches the display: x11, wayland, ...

EXAMPLES
  kalix-view                                  a window
  kalix-view --vnc 5901 &  vncviewer :1       the same for a VNC viewer on this machine
  kalix-view --vnc                            on the socket vnc of the run directory; from elsewhere:
  ssh -L 5901:/run/kalix/vnc host             then vncviewer :1 here)";

int run(int argc, char** argv)
{
    kalix::view::view_options options;
    CLI::App app{description, "kalix-view"};
    kalix::tools::set_usage(app, "kalix-view [--vnc [PORT]] [OPTIONS]");
    app.footer(footer);
    app.set_version_flag("--version", "kalix-view " KALIX_VERSION);
    CLI::Option* const vnc =
        app.add_option("--vnc", options.port, "serve VNC viewers, on loopback port PORT or a unix socket")
            ->type_name("[PORT]")
            ->expected(0, 1);
    app.add_option("--socket", options.socket_path, "the unix socket of --vnc; otherwise vnc in the run directory")
        ->type_name("PATH")
        ->needs(vnc);
    app.add_flag("--control", options.control, "send the pointer to the server as cursor moves; otherwise view only");
    app.add_flag("--print-rate", options.print_rate, "print the frames a second, once a second");
    app.add_option("--frames", options.frames, "end after so many frames were shown")->type_name("COUNT");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : exit_usage;
    }
    options.run_directory = kalix::tools::run_directory();
    return *vnc ? kalix::view::serve_vnc(options) : kalix::view::show_window(options);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::system_error& error) {
        std::cerr << "kalix-view: cannot " << error.what() << '\n';
        if (error.code().value() == ENOENT)
            std::cerr << "Is a server running? KALIX_RUN_DIR names its run directory.\n";
    } catch (const std::exception& error) {
        std::cerr << "kalix-view: " << error.what() << '\n';
    }
    return exit_failed;
}

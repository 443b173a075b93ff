// kalix-run: gives a command a server of its own.

#include "tools/run/supervise.h"
#include "tools/usage.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>

namespace {

constexpr const char* description = R"(Start a private kalix server, run a command with it, and stop the server again.

The server gets a fresh run directory that only this user can enter, with its settings inside; the
command finds it through KALIX_RUN_DIR and KALIX_PPS_DIR. When the command ends, the server is stopped
and the directory removed. Signals sent to kalix-run (INT, TERM, HUP, QUIT) go on to the command.)";

constexpr const char* footer = R"(
EXIT STATUS
  The command's own; 128 and N when signal N ended it; 127 when it was not found, 126 when it could
  not be started; 125 when kalix-run or the server failed.

ENVIRONMENT
  TMPDIR      where the run directory is made; else /dev/shm, else /tmp
  KALIX_*     other settings of the server are passed on to it

EXAMPLES
  kalix-run -- kalix-demo triangle --output triangle.png
  kalix-run --log server.log -- sh -c 'my-client & my-other-client; wait')";

// The command stands behind "--" and is taken as it is; what stands before it are options.
std::vector<std::string> split_command(int& argc, char** argv)
{
    char** const end = argv + argc;
    char** const dashes = std::find_if(argv, end, [](const char* word) { return std::string_view{word} == "--"; });
    if (dashes == end)
        return {};
    argc = static_cast<int>(dashes - argv);
    return {dashes + 1, end};
}

int run(int argc, char** argv)
{
    kalix::run::run_options options;
    options.command = split_command(argc, argv);

    CLI::App app{description, "kalix-run"};
    kalix::tools::set_usage(app, "kalix-run [OPTIONS] -- COMMAND [ARGUMENT...]");
    app.footer(footer);
    app.set_version_flag("--version", "kalix-run " KALIX_VERSION);
    app.add_option("--log", options.log, "write the server's log to FILE; otherwise it is shown only on failure")
        ->type_name("FILE");
    app.add_option("--server", options.server, "the server program; otherwise kalix beside kalix-run")
        ->type_name("PATH");
    app.add_option("--run-dir", options.run_directory,
                   "make DIR, which must not exist yet, the run directory, so that other programs can find it")
        ->type_name("DIR");
    app.allow_extras(); // told below, with the likely reason
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kalix::run::exit_failed;
    }
    if (!app.remaining().empty() || options.command.empty()) {
        const std::string what = app.remaining().empty() ? "no command" : "what is " + app.remaining().front() + " for";
        std::cerr << "kalix-run: " << what << "? The command stands behind --, as in kalix-run -- kalix-demo triangle\n"
                  << "Try kalix-run --help.\n";
        return kalix::run::exit_failed;
    }
    if (options.server.empty())
        options.server = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "kalix";
    return kalix::run::supervise(options);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "kalix-run: " << error.what() << '\n';
        return kalix::run::exit_failed;
    }
}

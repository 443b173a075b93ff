// kalix-run: gives a command a server of its own.

#include "tools/command_line.h"
#include "tools/run/supervise.h"

namespace {

using kalix::tools::parameter;
using kalix::tools::value_kind;

constexpr int64_t seconds_most = 1'000'000; // a poll counts milliseconds in an int

constexpr parameter parameters[] = {
    {.name = "--log",
     .kind = value_kind::file,
     .value = "FILE",
     .help = "write the server's log to FILE; otherwise it is shown only on failure"},
    {.name = "--server",
     .kind = value_kind::file,
     .value = "PATH",
     .help = "the server program; otherwise kalix beside kalix-run"},
    {.name = "--run-dir",
     .kind = value_kind::directory,
     .value = "DIR",
     .help = "make DIR, which must not exist yet, the run directory, so that other programs can find it"},
    {.name = "--screenshot",
     .kind = value_kind::file,
     .value = "FILE",
     .help = "write the screen at the command's end to FILE, a PNG picture with the cursor; - is standard output"},
    {.name = "--timeout",
     .kind = value_kind::number,
     .value = "SECONDS",
     .help = "end the command after so long: by TERM, and by KILL five seconds later; otherwise it takes its time",
     .least = 1,
     .most = seconds_most},
    {.name = "--ready-timeout",
     .kind = value_kind::number,
     .value = "SECONDS",
     .help = "give up when the server is not ready after so long",
     .initial = "120",
     .least = 1,
     .most = seconds_most},
};

constexpr kalix::tools::section sections[] = {
    {"EXIT STATUS", R"(The command's own; 128 and N when signal N ended it; 124 when its time was over; 127 when it was
not found, 126 when it could not be started; 125 when kalix-run or the server failed, also when the
command did well and its screenshot could not be written.)"},
    {"ENVIRONMENT", R"(TMPDIR      where the run directory is made; else /dev/shm, else /tmp
KALIX_*     other settings of the server are passed on to it)"},
    {"EXAMPLES", R"(kalix-run -- kalix-demo triangle --output triangle.png
kalix-run --screenshot screen.png --timeout 60 -- kalix-demo mesh --frames 200
kalix-run --log server.log -- sh -c 'my-client & my-other-client; wait')"}};

int supervise(const kalix::tools::arguments& given)
{
    kalix::run::run_options options;
    options.server = given.has("--server") ? std::filesystem::path{given.text("--server")}
                                           : std::filesystem::read_symlink("/proc/self/exe").parent_path() / "kalix";
    options.log = given.text("--log");
    options.run_directory = given.text("--run-dir");
    options.screenshot = given.text("--screenshot");
    options.ready_within = std::chrono::seconds{given.number("--ready-timeout")};
    if (given.has("--timeout"))
        options.time_limit = std::chrono::seconds{given.number("--timeout")};
    options.command = given.words();
    return kalix::run::supervise(options);
}

constexpr kalix::tools::program kalix_run{
    .name = "kalix-run",
    .summary = "Start a private kalix server, run a command with it, and stop the server again.",
    .description = R"(The server gets a fresh run directory that only this user can enter, with its settings inside; the
command finds it through KALIX_RUN_DIR and KALIX_PPS_DIR. When the command ends, what it has started and
left is ended, too, daemons included (by TERM, and by KILL two seconds later), the server is stopped and
the directory removed. Signals sent to kalix-run (INT, TERM, HUP, QUIT) go on to the command. Directories
that killed runs of the same user have left are removed at the start.)",
    .usage = "kalix-run [OPTIONS] -- COMMAND [ARGUMENT...]",
    .parameters = parameters,
    .run = supervise,
    .sections = sections,
    .words = "COMMAND [ARGUMENT...]",
    .words_hint = "The command stands behind --, as in kalix-run -- kalix-demo triangle",
    // Every status below is the command's to give.
    .failure_status = kalix::run::exit_failed,
    .usage_status = kalix::run::exit_failed,
};

} // namespace

int main(int argc, char** argv)
{
    return kalix::tools::run(kalix_run, argc, argv);
}

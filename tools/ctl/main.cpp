// kalixctl: looks into a running server, and changes what it shows.
//
// A command is a row of the table below: its words, and a function that finds out and returns a report. Printing is
// the same for all, so that each has its text and its JSON for nothing.

#include "tools/command_line.h"
#include "tools/ctl/commands.h"

#include <iostream>

namespace {

using kalix::tools::arguments;
using kalix::tools::command;
using kalix::tools::parameter;
using kalix::tools::value_kind;
using namespace kalix::ctl;

constexpr kalix::tools::section sections[] = {
    {"OUTPUT",
     R"(Tables and fields for people; with --json, before or behind the command, one JSON object, and a failure is
{"error": "...", "status": 1} on standard error.)"},
    {"EXIT STATUS",
     R"(0 when it was done, 1 when it could not be (one line on standard error says why), 2 for a wrong command
line. doctor exits with 0 when all is well and else with a number for the first fault, or without a fault the
first warning:
10 no run directory        17 status unreadable      24 a bound was reached
11 directory closed        18 no answer              25 commands or requests refused
12 not in the group        19 display off            26 store missing or not writable
13 no socket               20 nothing presented      27 zoomed
14 socket denied           21 debug display          28 a mode was refused
15 nobody listens          22 one colour
16 the server has ended    23 an overlay is hidden)"},
    {"ENVIRONMENT", "KALIX_RUN_DIR   run directory of the server"},
    {"EXAMPLES", R"(kalixctl list                        surfaces of all clients, and who holds them
kalixctl show 7                      surface 7 alone on the screen, until kalixctl reset
kalixctl dump 7 seven.png            its pixels, with their alpha
kalixctl screenshot - | display      the screen with the cursor, to standard output
kalixctl doctor                      why is the screen black?
kalixctl events --follow | jq .kind  what happens
kalixctl --json stats | jq .refused  what the device refused)"}};

constexpr parameter parameters[] = {{.name = "--json", .help = "print JSON instead of text"}};

constexpr parameter sid{.name = "sid",
                        .kind = value_kind::number,
                        .required = true,
                        .value = "SID",
                        .help = "a surface id; kalixctl list shows them"};
constexpr parameter file{.name = "file",
                         .kind = value_kind::file,
                         .required = true,
                         .value = "FILE",
                         .help = "the file to write; - for standard output"};

// What each command takes, in the order in which people type it.
constexpr parameter of_surface[] = {sid};

constexpr parameter of_dump[] = {
    sid,
    file,
    {.name = "--raw", .help = "write the first level's bytes as they are, in packed rows, instead of a PNG"}};

constexpr parameter of_bytes[] = {
    sid,
    {.name = "--offset",
     .kind = value_kind::number,
     .value = "BYTES",
     .help = "of the first row in the framebuffer, where row n begins at 512 n",
     .initial = "0"},
    {.name = "--row-bytes", .kind = value_kind::number, .value = "BYTES", .help = "bytes of a row", .initial = "16"},
    {.name = "--stride",
     .kind = value_kind::number,
     .value = "BYTES",
     .help = "bytes from row to row; may be negative",
     .initial = "512",
     .least = INT32_MIN,
     .most = INT32_MAX},
    {.name = "--rows",
     .kind = value_kind::number,
     .value = "COUNT",
     .help = "how many; rows times their bytes is at most 511",
     .initial = "1"}};

constexpr parameter of_fill[] = {sid,
                                 {.name = "pixel",
                                  .kind = value_kind::number,
                                  .required = true,
                                  .value = "PIXEL",
                                  .help = "the word of every pixel, say 0xFF336699"}};

constexpr parameter of_screenshot[] = {
    {.name = "file", .kind = value_kind::file, .value = "FILE", .help = "the file to write; - for standard output"},
    {.name = "--term", .help = "draw it in the terminal, too, or without a FILE instead"},
    {.name = "--no-cursor", .help = "leave the cursor out"},
    {.name = "--last", .help = "also when the server has ended: the last picture that it showed"}};

constexpr parameter of_zoom[] = {{.name = "factor",
                                  .kind = value_kind::text,
                                  .value = "FACTOR",
                                  .help = "0.1 to 1; without one, tells the factor in force"}};

constexpr parameter of_mode[] = {{.name = "size",
                                  .kind = value_kind::size,
                                  .required = true,
                                  .value = "WxH",
                                  .help = "pixels of the mode; the screen is this times the zoom"},
                                 {.name = "--bpp",
                                  .kind = value_kind::number,
                                  .value = "BITS",
                                  .help = "bits per pixel, 16 or 32",
                                  .initial = "32"}};

constexpr parameter of_events[] = {
    {.name = "--follow", .help = "go on with what happens, until interrupted or the server ends (status 1)"}};

constexpr parameter of_top[] = {
    {.name = "--interval",
     .kind = value_kind::text,
     .value = "SECONDS",
     .help = "from one look to the next, 0.1 to 3600",
     .initial = "1"},
    {.name = "--once", .help = "look once, and print; so does an output that is no terminal"}};

// A report on its way out; a pipe that has closed is a failure, too.
template <report (*find_out)(const arguments& given)>
int print(const arguments& given)
{
    const report result = find_out(given);
    std::ostream& out = result.output_taken ? std::cerr : std::cout;
    out << (given.has("--json") ? as_json(result) : as_text(result)) << std::flush;
    return out.good() ? result.status : 1;
}

constexpr command commands[] = {
    {"list", "list every surface, who holds it and how often", {}, print<list_surfaces>},
    {"info", "describe one surface and all its holders", of_surface, print<describe_surface>},
    {"show", "show one surface alone, instead of what clients present", of_surface, print<show_surface>},
    {"reset", "show again what clients present", {}, print<reset_display>},
    {"dump", "write a surface's pixels to a PNG file, or its bytes", of_dump, print<dump_surface>},
    {"bytes", "print bytes of a surface, laid out in the framebuffer (which shows them until the next present)",
     of_bytes, print<dump_bytes>},
    {"fill", "fill a surface of format X8R8G8B8 or A8R8G8B8 with one pixel", of_fill, print<fill_surface>},
    {"screenshot", "write what the screen shows to a PNG file", of_screenshot, print<take_screenshot>},
    {"frame", "tell of what the last frame was composed", {}, print<tell_frame>},
    {"stats", "tell clients and objects, and what the device counted", {}, print<tell_statistics>},
    {"zoom", "tell or set the factor by which the picture shrinks", of_zoom, print<tell_or_set_zoom>},
    {"mode", "set the display mode", of_mode, print<set_mode>},
    {"ping", "ask the server for a sign of life", {}, print<ping>},
    {"doctor", "find out why the screen is black, or why nobody can connect", {}, examine_server},
    {"events", "tell what happened in the server, one JSON object a line", of_events, tell_events},
    {"top", "show who keeps the server busy, until q is typed", of_top, show_top},
};

constexpr kalix::tools::program kalixctl{
    .name = "kalixctl",
    .summary = "Look into a running kalix server, and change what it shows.",
    .usage = "kalixctl [--json] COMMAND [ARGUMENT...]\n       kalixctl COMMAND --help",
    .parameters = parameters,
    .commands = commands,
    .sections = sections,
    .asks_server = true,
    .json_option = "--json",
};

} // namespace

int main(int argc, char** argv)
{
    return kalix::tools::run(kalixctl, argc, argv);
}

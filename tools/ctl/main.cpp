// kalixctl: looks into a running server, and changes what it shows.

#include "tools/ctl/commands.h"
#include "tools/size.h"
#include "tools/usage.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <system_error>

namespace {

using kalix::ctl::arguments;
using kalix::ctl::report;

constexpr int exit_failed = 1;
constexpr int exit_usage = 2;

constexpr const char* footer = R"(
OUTPUT
  Tables and fields for people; with --json, before or behind the command, one JSON object.

EXIT STATUS
  0 when it was done, 1 when it could not be (one line on standard error says why), 2 for a wrong command
  line.

ENVIRONMENT
  KALIX_RUN_DIR   run directory of the server
  KALIX_PPS_DIR   the server's publish/subscribe store, for zoom

EXAMPLES
  kalixctl list                        surfaces of all clients, and who holds them
  kalixctl show 7                      surface 7 alone on the screen, until kalixctl reset
  kalixctl dump 7 seven.png            its pixels, with their alpha
  kalixctl screenshot - | display      the screen with the cursor, to standard output
  kalixctl --json stats | jq .refused  what the device refused)";

struct command_row {
    const char* name;
    const char* summary;
    void (*declare)(CLI::App& app, arguments& given);
    report (*run)(const arguments& given);
    bool writes_picture; // to standard output, when the file is "-"
};

void no_arguments(CLI::App&, arguments&) {}

void sid_argument(CLI::App& app, arguments& given)
{
    app.add_option("sid", given.sid, "a surface id; kalixctl list shows them")->required()->type_name("SID");
}

CLI::Option* file_argument(CLI::App& app, arguments& given)
{
    return app.add_option("file", given.file, "the file to write; - for standard output")
        ->required()
        ->type_name("FILE");
}

void declare_dump(CLI::App& app, arguments& given)
{
    sid_argument(app, given);
    file_argument(app, given);
    app.add_flag("--raw", given.raw, "write the first level's bytes as they are, in packed rows, instead of a PNG");
}

void declare_bytes(CLI::App& app, arguments& given)
{
    sid_argument(app, given);
    app.add_option("--offset", given.offset, "of the first row in the framebuffer, where row n begins at 512 n")
        ->type_name("BYTES")
        ->capture_default_str();
    app.add_option("--row-bytes", given.row_bytes, "bytes of a row")->type_name("BYTES")->capture_default_str();
    app.add_option("--stride", given.stride, "bytes from row to row; may be negative")
        ->type_name("BYTES")
        ->capture_default_str();
    app.add_option("--rows", given.rows, "how many; rows times their bytes is at most 511")
        ->type_name("COUNT")
        ->capture_default_str();
}

void declare_fill(CLI::App& app, arguments& given)
{
    sid_argument(app, given);
    app.add_option("pixel", given.pixel, "the word of every pixel, say 0xFF336699")->required()->type_name("PIXEL");
}

void declare_screenshot(CLI::App& app, arguments& given)
{
    file_argument(app, given);
    app.add_flag("!--no-cursor", given.cursor, "leave the cursor out");
}

void declare_zoom(CLI::App& app, arguments& given)
{
    app.add_option("factor", given.factor, "0.1 to 1; without one, tells the factor in force")->type_name("FACTOR");
}

void declare_mode(CLI::App& app, arguments& given)
{
    app.add_option_function<std::string>(
           "size",
           [&given](const std::string& text) {
               if (!kalix::tools::parse_size(text, given.width, given.height))
                   throw CLI::ValidationError{"mode", text + " is no size; give it as WxH, say 1024x768"};
           },
           "pixels of the mode; the screen is this times the zoom")
        ->required()
        ->type_name("WxH");
    app.add_option("--bpp", given.bits_per_pixel, "bits per pixel, 16 or 32")->type_name("BITS")->capture_default_str();
}

constexpr command_row commands[] = {
    {"list", "list every surface, who holds it and how often", no_arguments, kalix::ctl::list_surfaces, false},
    {"info", "describe one surface and all its holders", sid_argument, kalix::ctl::describe_surface, false},
    {"show", "show one surface alone, instead of what clients present", sid_argument, kalix::ctl::show_surface, false},
    {"reset", "show again what clients present", no_arguments, kalix::ctl::reset_display, false},
    {"dump", "write a surface's pixels to a PNG file, or its bytes", declare_dump, kalix::ctl::dump_surface, true},
    {"bytes", "print bytes of a surface, laid out in the framebuffer (which shows them until the next present)",
     declare_bytes, kalix::ctl::dump_bytes, false},
    {"fill", "fill a surface of format X8R8G8B8 or A8R8G8B8 with one pixel", declare_fill, kalix::ctl::fill_surface,
     false},
    {"screenshot", "write what the screen shows to a PNG file", declare_screenshot, kalix::ctl::take_screenshot, true},
    {"frame", "tell of what the last frame was composed", no_arguments, kalix::ctl::tell_frame, false},
    {"stats", "tell clients and objects, and what the device counted", no_arguments, kalix::ctl::tell_statistics,
     false},
    {"zoom", "tell or set the factor by which the picture shrinks", declare_zoom, kalix::ctl::tell_or_set_zoom, false},
    {"mode", "set the display mode", declare_mode, kalix::ctl::set_mode, false},
    {"ping", "ask the server for a sign of life", no_arguments, kalix::ctl::ping, false},
};

int refuse(const std::vector<std::string>& words)
{
    std::cerr << "kalixctl: " << (words.empty() ? "no command given" : "what is " + words.front() + " for?")
              << "\nTry kalixctl --help.\n";
    return exit_usage;
}

int run(int argc, char** argv)
{
    arguments given;
    bool json = false;
    CLI::App app{"Look into a running kalix server, and change what it shows.", "kalixctl"};
    kalix::tools::set_usage(app, "kalixctl [--json] COMMAND [ARGUMENT...]\n       kalixctl COMMAND --help");
    app.footer(footer);
    app.set_version_flag("--version", "kalixctl " KALIX_VERSION);
    app.add_flag("--json", json, "print JSON instead of text");
    app.fallthrough();
    for (const command_row& row : commands) {
        CLI::App* const command = app.add_subcommand(row.name, row.summary);
        command->formatter(std::make_shared<CLI::Formatter>());
        command->footer("");
        row.declare(*command, given);
    }
    app.require_subcommand(0, 1);
    app.allow_extras(); // told below, by name
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : exit_usage;
    }
    if (app.get_subcommands().empty() || !app.remaining(true).empty())
        return refuse(app.remaining(true));
    const auto* const chosen = std::find_if(std::begin(commands), std::end(commands),
                                            [&](const command_row& row) { return app.got_subcommand(row.name); });
    const report result = chosen->run(given);
    std::ostream& out = chosen->writes_picture && given.file == "-" ? std::cerr : std::cout;
    out << (json ? as_json(result) : as_text(result)) << std::flush;
    return out.good() ? 0 : exit_failed;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::system_error& error) {
        std::cerr << "kalixctl: cannot " << error.what() << '\n';
        if (error.code().value() == ENOENT || error.code().value() == ECONNREFUSED)
            std::cerr << "Is a server running? KALIX_RUN_DIR names its run directory.\n";
    } catch (const std::exception& error) {
        std::cerr << "kalixctl: " << error.what() << '\n';
    }
    return exit_failed;
}

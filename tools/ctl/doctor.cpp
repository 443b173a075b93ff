// Why the screen is black, and why nobody can connect: everything that is known to go wrong, looked at in turn.

#include "tools/ctl/doctor.h"

#include "tools/ctl/commands.h"
#include "tools/screen/run_directory.h"
#include "tools/screen/status_reader.h"

#include <cerrno>
#include <fmt/format.h>
#include <iostream>
#include <kalix/rundir.h>
#include <utility>

namespace kalix::ctl {
namespace {

struct check {
    const char* name;
    finding (*look)(const patient&);
};
constexpr check checks[] = {
    {"directory", check_directory}, {"group", check_group},   {"server", check_server},
    {"socket", check_socket},       {"answer", check_answer}, {"display", check_display},
    {"debug", check_debug_display}, {"frame", check_frame},   {"picture", check_picture},
    {"overlays", check_overlays},   {"bounds", check_bounds}, {"refusals", check_refusals},
    {"store", check_store},         {"zoom", check_zoom},     {"mode", check_mode},
    {"viewer", check_viewer},
};

const char* word_of(severity how)
{
    constexpr const char* words[] = {"ok", "warn", "FAULT"};
    return words[static_cast<int>(how)];
}

// The first fault, or where there is none the first warning.
int exit_status(const std::vector<std::pair<const char*, finding>>& found)
{
    for (const severity how : {severity::fault, severity::warn})
        for (const auto& [name, what] : found)
            if (what.how == how)
                return static_cast<int>(what.what);
    return 0;
}

std::string as_lines(const std::vector<std::pair<const char*, finding>>& found, const std::vector<std::string>& rest)
{
    std::string out;
    for (const auto& [name, what] : found)
        out += fmt::format("{:<6} {:<10} {}{}{}\n", word_of(what.how), name, what.text, what.fix.empty() ? "" : "; ",
                           what.fix);
    if (!rest.empty())
        out += fmt::format("not looked at: {}\n", fmt::join(rest, ", "));
    return out;
}

std::string as_object(const std::vector<std::pair<const char*, finding>>& found, const std::vector<std::string>& rest)
{
    table rows{"checks", {}};
    for (const auto& [name, what] : found)
        rows.rows.push_back({{"check", std::string{name}},
                             {"level", std::string{word_of(what.how)}},
                             {"status", uint64_t{static_cast<uint32_t>(what.what)}},
                             {"finding", what.text},
                             {"fix", what.fix.empty() ? value{unknown{}} : what.fix}});
    return as_json({{{"status", int64_t{exit_status(found)}}, {"not_looked_at", rest}}, {std::move(rows)}});
}

// What cannot be read is left out: the check that says so has been made before.
void read_files(patient& of)
{
    of.server.reset();
    of.status.reset();
    try {
        of.server = tools::state_of_server(of.directory);
        if (of.server != tools::server_state::none)
            of.status = tools::read_status(of.directory);
        if (of.server != tools::server_state::lives)
            return;
        tools::screen_reader reader{of.directory};
        tools::screen_frame frame;
        if (reader.read(frame, tools::cursor_drawing::without))
            of.screen = std::move(frame);
        of.counted = reader.statistics();
    } catch (const std::exception&) {
        return;
    }
}

} // namespace

patient examine()
{
    patient of;
    of.directory = tools::run_directory();
    if (stat(of.directory.c_str(), &of.directory_facts) != 0) {
        of.directory_error = errno;
        return of;
    }
    struct stat facts {};
    if (stat((of.directory + "/" + kalix_channel_file).c_str(), &facts) == 0)
        of.socket_facts = facts;
    // Before the probe, which is a client itself.
    read_files(of);
    of.answer = probe_server(of.directory);
    // A socket that a service manager holds: it was the probe that has started the server.
    if (of.answer.outcome == probe::answered && of.server != tools::server_state::lives)
        read_files(of);
    return of;
}

int examine_server(const arguments& given)
{
    const patient of = examine();
    std::vector<std::pair<const char*, finding>> found;
    std::vector<std::string> rest;
    for (const check& each : checks)
        if (finding what = each.look(of); what.how != severity::not_looked_at)
            found.emplace_back(each.name, std::move(what));
        else
            rest.emplace_back(each.name);
    std::cout << (given.has("--json") ? as_object(found, rest) : as_lines(found, rest)) << std::flush;
    return std::cout.good() ? exit_status(found) : 1;
}

} // namespace kalix::ctl

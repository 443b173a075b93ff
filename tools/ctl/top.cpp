// Who keeps the server busy: its clients by what they asked for between two looks at the status file.

#include "tools/ctl/commands.h"
#include "tools/ctl/status_text.h"
#include "tools/ctl/terminal.h"
#include "tools/screen/run_directory.h"
#include "tools/screen/server_state.h"
#include "tools/screen/status_reader.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <functional>
#include <iostream>
#include <numeric>
#include <thread>
#include <unistd.h>

namespace kalix::ctl {
namespace {

using clock = std::chrono::steady_clock;

struct look {
    std::unique_ptr<kalix_status> status;
    clock::time_point at;
};

look look_at(const tools::status_reader& reader)
{
    if (!reader.server_lives())
        throw tools::server_ended{};
    return {reader.read(), clock::now()};
}

// Seconds between two looks, from a tenth to an hour.
std::chrono::milliseconds interval_of(const arguments& given)
{
    const std::string text = given.text("--interval");
    double seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (error != std::errc{} || end != text.data() + text.size() || !(seconds >= 0.1 && seconds <= 3600))
        throw tools::usage_error{text + " is no number of seconds from 0.1 to 3600"};
    return std::chrono::milliseconds{static_cast<int64_t>(seconds * 1000)};
}

// What it had before, or nothing for a client that has come since: a slot may be another's by now.
kalix_status_client before(const kalix_status_client& now, const kalix_status& earlier, size_t slot)
{
    const kalix_status_client& then = earlier.clients[slot];
    const bool same = then.pid == now.pid && then.uid == now.uid && then.requests <= now.requests;
    return same ? then : kalix_status_client{};
}

record row_of(const kalix_status_client& now, const kalix_status_client& then, double seconds)
{
    const auto rate = [seconds](uint64_t to, uint64_t from) {
        return std::round(static_cast<double>(to - from) / seconds * 10) / 10;
    };
    const uint64_t objects = std::accumulate(std::begin(now.objects), std::end(now.objects), uint64_t{0});
    const std::string name = process_name(now.pid);
    return {{"pid", uint64_t{now.pid}},
            {"process", name.empty() ? value{unknown{}} : name},
            {"user", user_name(now.uid)},
            {"objects", objects},
            {"device_bytes", now.device_bytes},
            {"shared_bytes", now.shared_bytes},
            {"requests_per_second", rate(now.requests, then.requests)},
            {"frames_per_second", rate(now.presents, then.presents)},
            {"refused", uint64_t{now.refused.count}},
            {"last_refusal", last_refusal(now)}};
}

report compare(const look& earlier, const look& now)
{
    const double seconds = std::chrono::duration<double>(now.at - earlier.at).count();
    const uint64_t frames = now.status->frame.number - earlier.status->frame.number;
    table clients{"clients", {}};
    for (size_t slot = 0; slot < KALIX_STATUS_CLIENTS; ++slot)
        if (const kalix_status_client& each = now.status->clients[slot]; each.pid != 0)
            clients.rows.push_back(row_of(each, before(each, *earlier.status, slot), seconds));
    // The busiest first; the column is there in each row.
    constexpr size_t requests = 6;
    std::ranges::stable_sort(clients.rows, std::greater{},
                             [](const record& row) { return std::get<double>(row[requests].content); });
    return {{{"server", uint64_t{now.status->server_pid}},
             {"started", time_text(now.status->start_ns)},
             {"frames_per_second", std::round(static_cast<double>(frames) / seconds * 10) / 10}},
            {std::move(clients)}};
}

} // namespace

int show_top(const arguments& given)
{
    const std::chrono::milliseconds interval = interval_of(given);
    const std::string directory = tools::run_directory();
    tools::expect_server(directory);
    const tools::status_reader reader{directory};
    look earlier = look_at(reader);
    if (given.has("--once") || given.has("--json") || !isatty(STDOUT_FILENO)) {
        std::this_thread::sleep_for(interval);
        const report got = compare(earlier, look_at(reader));
        std::cout << (given.has("--json") ? as_json(got) : as_text(got)) << std::flush;
        return std::cout.good() ? 0 : 1;
    }
    const full_screen terminal;
    terminal.draw("looking ...");
    while (!terminal.ends_within(interval)) {
        look now = look_at(reader);
        terminal.draw(as_text(compare(earlier, now)));
        earlier = std::move(now);
    }
    return 0;
}

} // namespace kalix::ctl

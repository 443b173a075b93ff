// What happened in the server, one JSON object a line: out of the ring in the status file, so that the server neither
// knows its readers nor waits for them. A reader that falls behind is told how much it missed.

#include "tools/ctl/commands.h"
#include "tools/ctl/status_text.h"
#include "tools/ctl/svga_names.h"
#include "tools/screen/run_directory.h"
#include "tools/screen/server_state.h"
#include "tools/screen/status_reader.h"

#include <algorithm>
#include <chrono>
#include <iostream>
#include <thread>

namespace kalix::ctl {
namespace {

using namespace std::chrono_literals;

constexpr auto look_every = 50ms; // one word, until it has changed

// What the three words of a kind are.
record details(const kalix_status_event& event)
{
    switch (event.kind) {
    case KALIX_EVENT_DISCONNECT:
        return {{"requests", uint64_t{event.a}}};
    case KALIX_EVENT_REFUSAL: {
        const auto status = static_cast<int32_t>(event.c);
        return {{"request", uint64_t{event.a}},
                {"command", event.b ? value{uint64_t{event.b}} : unknown{}},
                {"status", int64_t{status}},
                {"text", refusal_text(event.a, status, event.b)}};
    }
    case KALIX_EVENT_MODE:
        return {{"size", extent{event.a, event.b}}, {"bits_per_pixel", uint64_t{event.c}}};
    case KALIX_EVENT_ZOOM:
        return {{"zoom", event.a / 1e6}};
    case KALIX_EVENT_OVERLAY_DEFINED:
    case KALIX_EVENT_OVERLAY_DESTROYED:
        return {{"overlay", uint64_t{event.a}}};
    case KALIX_EVENT_OVERLAY_VISIBLE:
        return {{"overlay", uint64_t{event.a}}, {"visible", event.b != 0}};
    case KALIX_EVENT_DISPLAY:
        return {{"on", event.a != 0}};
    default:
        return {};
    }
}

record line_of(const kalix_status_event& event)
{
    record line{{"number", event.number},
                {"time", time_text(event.time_ns)},
                {"kind", event_name(event.kind)},
                {"pid", uint64_t{event.pid}},
                {"uid", uint64_t{event.uid}}};
    std::ranges::move(details(event), std::back_inserter(line));
    return line;
}

// Prints what is newer than the number, and returns the number of the last. False from the stream ends it all.
uint64_t print_newer(const kalix_status& status, uint64_t seen, std::ostream& out)
{
    const uint64_t last = status.event_number;
    const uint64_t kept = last - std::min<uint64_t>(last, KALIX_STATUS_EVENTS);
    if (kept > seen)
        out << as_json_line({{"kind", std::string{"missed"}}, {"count", kept - seen}});
    for (uint64_t number = std::max(seen, kept) + 1; number <= last; ++number)
        out << as_json_line(line_of(status.events[(number - 1) % KALIX_STATUS_EVENTS]));
    out << std::flush;
    return last;
}

} // namespace

int tell_events(const arguments& given)
{
    const std::string directory = tools::run_directory();
    tools::expect_server(directory);
    const tools::status_reader reader{directory};
    uint64_t seen = print_newer(*reader.read(), 0, std::cout);
    while (given.has("--follow") && std::cout.good()) {
        // Asked before the look: what a server did last is told before it is said to have ended.
        const bool lives = reader.server_lives();
        if (reader.event_number() != seen)
            seen = print_newer(*reader.read(), seen, std::cout);
        if (!lives)
            throw tools::server_ended{};
        std::this_thread::sleep_for(look_every);
    }
    return std::cout.good() ? 0 : 1;
}

} // namespace kalix::ctl

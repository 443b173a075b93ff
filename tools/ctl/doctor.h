// What kalixctl doctor finds out once, and the checks that judge it.
//
// A check is a function from the patient to a finding; the table in doctor.cpp has them in the order in which one has to
// hold before the next means something. Nothing here throws for what is wrong with a server: that is the finding.
#pragma once

#include "tools/screen/screen_reader.h"
#include "tools/screen/server_state.h"

#include <kalix/status.h>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>

namespace kalix::ctl {

// What the program exits with for a finding; docs/tools.md has the table.
enum class fault {
    none = 0,
    no_directory = 10,
    directory_closed = 11,
    not_in_group = 12,
    no_socket = 13,
    socket_denied = 14,
    nobody_listens = 15,
    server_ended = 16,
    status_unreadable = 17,
    no_answer = 18,
    display_off = 19,
    nothing_presented = 20,
    debug_display = 21,
    one_colour = 22,
    overlay_hidden = 23,
    bound_reached = 24,
    refused = 25,
    store = 26,
    zoomed = 27,
    mode_refused = 28,
};

enum class severity { ok, warn, fault, not_looked_at };

struct finding {
    severity how = severity::not_looked_at;
    fault what = fault::none;
    std::string text;
    std::string fix;
};
inline finding fine(std::string text)
{
    return {severity::ok, fault::none, std::move(text), ""};
}

// One connection and one request, with patience.
struct probe {
    enum { answered, no_socket, denied, refused, silent, closed, not_made } outcome = not_made;
    double round_trip_us = 0;
};
inline constexpr int probe_seconds = 2; // a command buffer's delay holds up all others for one
probe probe_server(const std::string& directory);

struct patient {
    std::string directory;
    int directory_error = 0; // of looking at it
    struct stat directory_facts {};
    std::optional<struct stat> socket_facts;
    std::optional<tools::server_state> server; // none: it may not be asked
    std::unique_ptr<kalix_status> status;      // also of a server that has ended
    probe answer;
    std::optional<tools::screen_frame> screen; // of a server that lives
    kalix_screen_statistics counted{};
};
patient examine();

// Around the server: doctor_host.cpp.
finding check_directory(const patient&);
finding check_group(const patient&);
finding check_server(const patient&);
finding check_socket(const patient&);
finding check_answer(const patient&);
finding check_store(const patient&);
finding check_viewer(const patient&);
// On the screen, of a server that lives: doctor_screen.cpp.
finding check_display(const patient&);
finding check_mode(const patient&);
finding check_debug_display(const patient&);
finding check_frame(const patient&);
finding check_picture(const patient&);
finding check_overlays(const patient&);
finding check_bounds(const patient&);
finding check_refusals(const patient&);
finding check_zoom(const patient&);

} // namespace kalix::ctl

// What the device has done and refused, and the one line that it logs for each kind of refusal.
//
// Used under the device's execution lock. The screen shows a copy to viewers. One line a kind and no more: refusals
// come from clients, who could fill a log with them.
#pragma once

#include "device/state/screen_file.h"

#include <array>
#include <cstdint>
#include <kalix/screen.h>

namespace kalix::device {

class counters {
public:
    explicit counters(log_function log) : log_{log} {}

    // Counts a refusal; the first of its kind is logged with the command, 0 standing for none.
    void refuse(kalix_refused kind, uint32_t command);
    void count_command(uint32_t id);

    kalix_screen_statistics values{};

private:
    log_function log_;
};

} // namespace kalix::device

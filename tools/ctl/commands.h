// The commands of kalixctl: each does one thing to a server and reports what came of it.
//
// Failures are exceptions whose text says what failed and, where that is known, what to do: std::system_error
// from libkalix ("cannot " stands before it), std::runtime_error with a whole sentence.
#pragma once

#include "tools/ctl/report.h"

#include <cstdint>
#include <string>

namespace kalix::ctl {

struct arguments { // what a command line said; a command reads its own
    uint32_t sid = 0;
    std::string file;
    bool raw = false;
    bool cursor = true;
    uint32_t pixel = 0;
    uint32_t offset = 0, row_bytes = 16, rows = 1;
    int32_t stride = 512;
    std::string factor;
    uint32_t width = 0, height = 0, bits_per_pixel = 32;
};

report list_surfaces(const arguments&);
report describe_surface(const arguments&);
report show_surface(const arguments&);
report reset_display(const arguments&);
report dump_surface(const arguments&);
report dump_bytes(const arguments&);
report fill_surface(const arguments&);
report take_screenshot(const arguments&);
report tell_frame(const arguments&);
report tell_statistics(const arguments&);
report tell_or_set_zoom(const arguments&);
report set_mode(const arguments&);
report ping(const arguments&);

} // namespace kalix::ctl

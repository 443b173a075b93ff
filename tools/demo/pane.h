// The second client of the animated scene: a pane of coloured glass that drifts over the screen.
#pragma once

#include "tools/demo/animation.h"

#include <sys/types.h>

namespace kalix::demo {

// A process of its own, with a connection of its own, from here until this ends.
class pane_process {
public:
    // Throws std::system_error when it cannot be started. Call while no connection is open.
    explicit pane_process(const animation_options& options);
    ~pane_process();
    pane_process(const pane_process&) = delete;
    pane_process& operator=(const pane_process&) = delete;

private:
    pid_t process_;
};

} // namespace kalix::demo

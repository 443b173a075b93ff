// Where remote viewers come in: what serves them does not know which way they came.
#pragma once

#include "base/unique_fd.h"

#include <string>

namespace kalix::view {

class viewer_door {
public:
    virtual ~viewer_door() = default;

    // How people find it: a path, or an address with its port.
    virtual std::string name() const = 0;
    // A viewer that has come, who speaks VNC from here on; nothing when none waits. Never blocks.
    virtual unique_fd accept() = 0;
    // Returns when accept() may have something to do, or after so many milliseconds.
    virtual void wait(int milliseconds) const = 0;
};

} // namespace kalix::view

// Tells the service manager, twice in the time that it allows, that messages are received.
//
// A timer, polled by the receive loop and answered by its thread: a loop that has stopped turning tells nothing, nor
// does one that waits for the device mutex, as a change of the zoom does. The receive loop's thread alone uses it.
#pragma once

#include "base/unique_fd.h"

namespace kalix::platform {

class watchdog {
public:
    // Makes the timer where the manager asks for one; false with errno.
    bool open();
    int descriptor() const { return timer_.get(); } // -1: nobody asks
    // The descriptor has become readable.
    void beat();

private:
    unique_fd timer_;
};

} // namespace kalix::platform

// Holds the device mutex for a scope. A type of its own, since the mutex is borrowed and may be none.
#pragma once

#include "driver/state/driver_state.h"

namespace kalix {

class KALIX_SCOPED_CAPABILITY device_hold {
public:
    device_hold() KALIX_ACQUIRE(_globals.device_mutex) { _globals.device_mutex.lock(); }
    ~device_hold() KALIX_RELEASE() { _globals.device_mutex.unlock(); }
    device_hold(const device_hold&) = delete;
    device_hold& operator=(const device_hold&) = delete;
};

} // namespace kalix

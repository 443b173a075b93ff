// Holds the device mutex for a scope, when one was supplied at bring-up.
#pragma once

#include "driver/state/driver_state.h"

namespace kalix {

class device_hold {
public:
    device_hold() KALIX_NO_THREAD_SAFETY_ANALYSIS
    {
        if (_globals.device_mutex)
            _globals.device_mutex->lock();
    }
    ~device_hold() KALIX_NO_THREAD_SAFETY_ANALYSIS
    {
        if (_globals.device_mutex)
            _globals.device_mutex->unlock();
    }
    device_hold(const device_hold&) = delete;
    device_hold& operator=(const device_hold&) = delete;
};

} // namespace kalix

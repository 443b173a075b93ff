// Pulses that the process sends to its own channel.
//
// One lock guards the queue; any thread puts pulses in, the receive loop takes them out when the
// descriptor is readable.
#pragma once

#include "base/lock.h"
#include "platform/channel/channel.h"
#include "base/unique_fd.h"

#include <array>
#include <cstddef>
#include <optional>

namespace kalix::platform {

inline constexpr size_t pulses_max = 4096; // that wait to be received

class pulse_queue {
public:
    // Makes the descriptor; false with errno after one line.
    bool open();
    // Forgets all pulses and closes it.
    void close();
    int descriptor() const { return ready_.get(); }

    // Returns 0, or -1: EAGAIN when too many wait.
    int put(const _pulse& pulse);
    // The oldest pulse, none when none waits. Of the receive loop's thread alone.
    std::optional<_pulse> take();

private:
    mutex lock_;
    unique_fd ready_; // counts the pulses in the queue; changes only while no thread sends
    // Its memory is the process's own, so that a pulse is lost for no lack of any.
    std::array<_pulse, pulses_max> pulses_ KALIX_GUARDED_BY(lock_);
    size_t first_ KALIX_GUARDED_BY(lock_) = 0; // place of the oldest
    size_t count_ KALIX_GUARDED_BY(lock_) = 0;
};

} // namespace kalix::platform

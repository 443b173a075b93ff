// Connections that the server has given back: what it did for them is done, and their ids may be used again.
//
// One lock guards the list; any thread adds to it, the receive loop empties it when the descriptor is
// readable. The room is taken at the start, so that giving back never fails for want of memory.
#pragma once

#include "base/lock.h"
#include "base/unique_fd.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kalix::platform {

class returned_connections {
public:
    // Takes room for that many and makes the descriptor; false with errno after one line.
    bool open(size_t most);
    void close();
    int descriptor() const { return ready_.get(); }

    // Returns 0, or -1: EBADF when no channel is open or more come back than there are.
    int put(uint32_t scoid);
    // Hands over what has come back, in exchange for an empty list with the same room.
    void take(std::vector<uint32_t>& scoids);

private:
    mutex lock_;
    unique_fd ready_; // changes only while no other thread uses the channel
    std::vector<uint32_t> scoids_ KALIX_GUARDED_BY(lock_);
};

} // namespace kalix::platform

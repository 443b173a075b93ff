// The typed calls of fences: numbers that the device passes once all that came before has been done.
//
// A wait holds the connection's lock until the server answers; a client that wants to go on meanwhile waits on a
// connection of its own, or asks whether the fence has passed.

#include "client/connection.h"

using namespace kalix::client_library;

int kalix_fence_wait(kalix_connection* connection, uint32_t fence)
{
    fence_wait_req req{fence};
    return call(connection, KALIX_FENCE_WAIT, req, 0);
}

int kalix_fence_signalled(kalix_connection* connection, uint32_t fence, int* signalled, uint32_t* passed)
{
    if (!signalled)
        return -EINVAL;
    fence_signalled_req req{};
    req.seqno = fence;
    if (const int error = call(connection, KALIX_FENCE_SIGNALLED, req, sizeof req))
        return error;
    *signalled = req.signalled != 0;
    if (passed)
        *passed = req.device_seqno;
    return 0;
}

int kalix_fence_unref(kalix_connection* connection, uint32_t fence)
{
    fence_wait_req req{fence};
    return call(connection, KALIX_FENCE_UNREF, req, 0);
}

#include "driver/objects/fence.h"

#include "driver/objects/parameters.h"
#include "svga/svga.h"

namespace kalix {

int vmw_fence_wait_ioctl(client_record*, fence_wait_req* req)
{
    if (!req)
        return status_invalid;
    SVGA_SyncToFence(req->seqno);
    return 0;
}

int vmw_fence_signalled_ioctl(client_record*, fence_signalled_req* req)
{
    if (!req)
        return status_invalid;
    // Read once, so that the two answers agree. Compared as it is, without allowance for numbers that have wrapped, as
    // clients know it; 0 names no fence and has always passed.
    const uint32_t passed = fifo_register(SVGA_FIFO_FENCE);
    const bool signalled = req->seqno == 0 || passed >= req->seqno;
    req->signalled = signalled;
    req->signal_mask = signalled ? 3 : 0;
    req->device_seqno = passed;
    return 0;
}

} // namespace kalix

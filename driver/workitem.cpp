#include "driver/workitem.h"

namespace kalix {

// Posted under the lock, so that the worker which the post wakes finds the item behind it.
bool queue_workitem(std::unique_ptr<workitem>& item)
{
    hold lock{_globals.work_lock};
    if (linkedlist_insert_tail(_globals.work_queue, item.get()) != 0)
        return false;
    static_cast<void>(item.release()); // the queue's now, and then the worker's
    _globals.work_sem.post();
    return true;
}

std::unique_ptr<workitem> take_workitem()
{
    for (;;) {
        _globals.work_sem.wait();
        hold lock{_globals.work_lock};
        if (workitem* const oldest = linkedlist_pop_first(_globals.work_queue))
            return std::unique_ptr<workitem>{oldest};
    }
}

} // namespace kalix

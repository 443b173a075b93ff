// Who does what next. Somebody always gets on: the thread that is furthest behind finds its next batch ready, in the
// hands of another one that waits for nothing, or not begun, and then there is a place for it.

#include "device/raster/batches.h"

#include <algorithm>

namespace kalix::device::raster {

void draw_memory::make_batches(size_t count)
{
    while (batches.size() < count)
        batches.push_back(std::make_unique<batch>());
}

batch_order::batch_order(uint32_t batches, uint32_t places, uint32_t threads, uint32_t ready)
    : batches_{batches}, worked_out_(places), drawn_(threads), begun_{ready}
{
    for (uint32_t which = 0; which < ready; ++which)
        worked_out_[which % places] = which + 1;
}

bool batch_order::find(uint32_t thread, batch_task& out)
{
    const auto places = static_cast<uint32_t>(worked_out_.size());
    const uint32_t to_draw = drawn_[thread];
    if (to_draw == batches_) {
        out = {batch_step::end, 0};
        return true;
    }
    // Drawing comes before working out: it is what gives places back. The number in a place is the batch's own plus
    // one, since 0 stands for none, and a place still has that of a batch before until it is worked out anew.
    if (worked_out_[to_draw % places] == to_draw + 1) {
        out = {batch_step::draw, to_draw};
        return true;
    }
    // The next batch takes the place of the one so many places before it, which every thread must have drawn.
    if (begun_ == batches_ || begun_ - std::ranges::min(drawn_) >= places)
        return false;
    out = {batch_step::work_out, begun_++};
    return true;
}

batch_task batch_order::next(uint32_t thread)
{
    for (;;) {
        // Read before the search: what is finished after it ends the wait at once.
        const uint32_t known = finished_.load();
        batch_task found;
        {
            const hold held{lock_};
            if (find(thread, found))
                return found;
        }
        finished_.wait_for_change(known);
    }
}

void batch_order::finish(uint32_t thread, const batch_task& task)
{
    {
        const hold held{lock_};
        if (task.step == batch_step::draw)
            ++drawn_[thread];
        else
            worked_out_[task.which % worked_out_.size()] = task.which + 1;
    }
    // Behind the lock, so that whoever wakes finds it free.
    finished_.add(1);
}

} // namespace kalix::device::raster

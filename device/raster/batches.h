// Batches: a draw's primitives, cut into runs that threads work out and draw side by side.
//
// Any thread works out the shapes of a batch; every thread draws its own rows of every batch, in the order of the
// batches, so that the picture is that of one thread. Whoever has nothing to draw yet works out a batch that is still
// to come, as long as there is memory for one more.
//
// A batch is written by the one thread that works it out and read by all that draw it, and needs no lock of its own:
// its being ready, and its having been drawn by all, are told under batch_order's. draw.cpp has the threads' loop,
// geometry.h what a batch holds.
#pragma once

#include "base/futex.h"
#include "base/lock.h"
#include "device/raster/geometry.h"

#include <memory>
#include <vector>

namespace kalix::device::raster {

// What draws use one after the other; it grows with the largest of them, whose primitives are limited.
struct draw_memory {
    std::vector<uint32_t> numbers; // of indexed vertices
    std::vector<std::unique_ptr<batch>> batches;

    // Called before anything is drawn, where lack of memory (std::bad_alloc) can still refuse the draw.
    // Room for so many batches at a time.
    void make_batches(size_t count);
};

enum class batch_step { work_out, draw, end };

struct batch_task {
    batch_step step;
    uint32_t which; // batch
};

// Tells threads what to do next. Batch n lies in place n modulo the number of places.
class batch_order {
public:
    // ready: how many batches from the first on have been worked out already.
    batch_order(uint32_t batches, uint32_t places, uint32_t threads, uint32_t ready);

    // A thread's next task; waits until there is one.
    batch_task next(uint32_t thread);
    // The thread has finished it.
    void finish(uint32_t thread, const batch_task& task);

private:
    bool find(uint32_t thread, batch_task& out) KALIX_REQUIRES(lock_);

    const uint32_t batches_;
    mutex lock_;                                               // taken alone, a few times a batch
    std::vector<uint32_t> worked_out_ KALIX_GUARDED_BY(lock_); // by place: the number behind that of its batch
    std::vector<uint32_t> drawn_ KALIX_GUARDED_BY(lock_);      // by thread: batches
    uint32_t begun_ KALIX_GUARDED_BY(lock_);                   // batches that are worked out, or being so
    awaited_word finished_;                                    // tasks; what waiting threads look at
};

} // namespace kalix::device::raster

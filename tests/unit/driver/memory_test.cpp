// Every request without memory or FIFO space, at every place where it may run out: answered, and no trace.

#include "tests/unit/driver/support.h"

#include "driver/objects/client.h"

#include <kalix/svga3d_types.h>

namespace kalix::test {
namespace {

using memory_test = driver_test;

struct books {
    std::array<uint32_t, 4> ids;
    std::array<int32_t, RESOURCE_TOTAL> objects;
    size_t descriptors;
    int mappings;
    bool operator==(const books&) const = default;
};

books count()
{
    books now{{_globals.surface_ids.usecount, _globals.context_ids.usecount, _globals.dma_ids.usecount,
               _globals.overlay_ids.usecount},
              {},
              here().open_objects.size(),
              here().mappings};
    for (size_t type = 0; type < RESOURCE_TOTAL; ++type)
        now.objects[type] = _globals.resource_tables[type]->count;
    return now;
}

struct attempt {
    const char* name;
    int32_t command, refused; // its status without memory
    bytes payload, behind = {};
};

const attempt attempts[] = {
    {"context", KALIX_CONTEXT_DEFINE, -12, words({0, 0})},
    {"surface", KALIX_SURFACE_DEFINE, -12, bytes_of(surface_define_req{0, 2, {1}, 64, 0, 0, 0, 0}), words({4, 4, 1})},
    {"dma buffer", KALIX_DMABUF_ALLOC, -12, words({64, 0, 0, 0, 0, 0})},
    {"sid", KALIX_ALLOC_SID, 1, words({0, 0})},
    {"overlay", KALIX_OVERLAY_DEFINE, 12, bytes_of(overlay_define_req{0, 0, 8, 4, 1, 0, 0, 0, 0, 0})},
};

TEST_F(memory_test, NothingIsLeftOfARequestThatRanOutOfMemoryOrFifoSpace)
{
    ASSERT_EQ(define_surface(1), 1); // makes the client
    for (const attempt& each : attempts) {
        SCOPED_TRACE(each.name);
        const auto send = [&] { return request(1, each.command, each.payload, each.behind).value; };
        const books before = count();
        if (const int32_t status = with_reservations(0, send); status != 0) {
            EXPECT_EQ(status, -12);
            EXPECT_EQ(count(), before);
        }
        for (const bool lasting : {false, true})
            for (int nth = 2;; ++nth) { // the first is the payload itself
                ASSERT_LT(nth, 30);
                const books left = count();
                const int32_t status = failing(nth, send, lasting);
                if (status == 0)
                    break;
                EXPECT_EQ(status, each.refused);
                EXPECT_EQ(count(), left) << "allocation " << nth;
            }
    }
    EXPECT_THAT(take_lines(), testing::IsSupersetOf({
                                  "2 kalix: vmw_context_define_ioctl: could not create context!",
                                  "2 kalix: surface_init: fifo reserve failed for create surface.",
                                  "2 kalix: vmw_surface_define_ioctl: could not create surface!",
                                  "2 kalix: dma_create_gmr: GMR2 SVGA_FIFOReserve FAILED",
                              }));
}

TEST_F(memory_test, ACommandBufferThatCannotBeKeptServesItsRequest)
{
    ASSERT_EQ(define_context(1), 1u);
    command_buffer(1, 1, words({1057, 4, 1}));
    for (int nth = 4; nth <= 7; ++nth) { // behind the payload, the record and its share
        const answer got = failing(nth, [&] { return execute(1, 1, 12); });
        EXPECT_EQ(got.value, 0) << nth;
        EXPECT_EQ(got.sent, (stream{1057, 4, 1}));
        EXPECT_EQ(_globals.resource_tables[RESOURCE_EXECBUF]->count, 0);
        EXPECT_TRUE(here().open_objects.empty());
    }
    EXPECT_TRUE(here().unlinked.empty());
}

TEST_F(memory_test, AnIdWhoseDestructionCannotBeQueuedStaysTaken)
{
    ASSERT_EQ(define_context(1), 1u);
    ASSERT_EQ(define_surface(1), 1);
    EXPECT_EQ(with_reservations(0, [&] { return request(1, KALIX_CONTEXT_DESTROY, words({1})).value; }), 0);
    EXPECT_EQ(with_reservations(0, [&] { return destroy_surface(1, 1); }), 0);
    EXPECT_EQ(define_context(1), 2u);
    EXPECT_EQ(define_surface(1), 2);
}

} // namespace
} // namespace kalix::test

// Every request without memory or FIFO space, at every place where it may run out: answered, and no trace.

#include "tests/unit/driver/support.h"

#include "driver/objects/client.h"

#include <kalix/svga3d_types.h>

namespace kalix::test {
namespace {

struct books {
    uint32_t surfaces, contexts, dma;
    std::array<int32_t, RESOURCE_TOTAL> objects;
    size_t descriptors;
    int mappings;
    bool operator==(const books&) const = default;
};

books count()
{
    books now{_globals.surface_ids.usecount, _globals.context_ids.usecount,
              _globals.dma_ids.usecount,     {},
              here().open_objects.size(),    here().mappings};
    for (size_t type = 0; type < RESOURCE_TOTAL; ++type)
        now.objects[type] = _globals.resource_tables[type]->count;
    return now;
}

struct attempt {
    const char* name;
    std::function<int32_t(driver_test&)> run;
};

class MemoryTest : public driver_test {
protected:
    std::vector<attempt> attempts()
    {
        const auto send = [this](int32_t command, const bytes& payload, const bytes& behind) {
            return [=, this](driver_test&) { return request(1, command, payload, behind).value; };
        };
        const bytes define = bytes_of(surface_define_req{0, 2, {1, 0, 0, 0, 0, 0}, 64, 0, 0, 0, 0});
        const bytes size = words({4, 4, 1, 0});
        return {
            {"context", send(KALIX_CONTEXT_DEFINE, words({0, 0}), {})},
            {"surface", send(KALIX_SURFACE_DEFINE, define, size)},
            {"dma buffer", send(KALIX_DMABUF_ALLOC, words({64, 0, 0, 0, 0, 0}), {})},
            {"sid", send(KALIX_ALLOC_SID, words({0, 0}), {})},
        };
    }
};

TEST_F(MemoryTest, NothingIsLeftOfARequestThatRanOutOfMemory)
{
    ASSERT_EQ(define_surface(1), 1); // makes the client
    for (const attempt& each : attempts())
        for (const bool lasting : {false, true}) {
            SCOPED_TRACE(each.name);
            for (int nth = 2;; ++nth) { // the first is the payload itself
                ASSERT_LT(nth, 30);
                const books before = count();
                fail_allocation(nth, lasting);
                const int32_t status = each.run(*this);
                fail_allocation(0);
                if (status == 0)
                    break;
                EXPECT_TRUE(status == -12 || status == 1) << status;
                EXPECT_EQ(count(), before) << "allocation " << nth;
            }
        }
}

TEST_F(MemoryTest, NothingIsLeftOfARequestWithoutFifoSpace)
{
    ASSERT_EQ(define_surface(1), 1);
    for (const attempt& each : attempts()) {
        SCOPED_TRACE(each.name);
        const books before = count();
        here().reservations_left = 0;
        const int32_t status = each.run(*this);
        here().reservations_left = -1;
        if (status != 0) {
            EXPECT_EQ(status, -12);
            EXPECT_EQ(count(), before);
        }
    }
    EXPECT_THAT(take_lines(), testing::IsSupersetOf({
                                  "2 kalix: vmw_context_define_ioctl: could not create context!",
                                  "2 kalix: surface_init: fifo reserve failed for create surface.",
                                  "2 kalix: vmw_surface_define_ioctl: could not create surface!",
                                  "2 kalix: dma_create_gmr: GMR2 SVGA_FIFOReserve FAILED",
                              }));
}

TEST_F(MemoryTest, ACommandBufferThatCannotBeKeptServesItsRequest)
{
    ASSERT_EQ(define_context(1), 1u);
    command_buffer(1, 1, words({1057, 4, 1}));
    for (int nth = 4; nth <= 7; ++nth) { // behind the payload, the record and its share
        take_stream();
        fail_allocation(nth);
        EXPECT_EQ(execute(1, 1, 12).value, 0) << nth;
        fail_allocation(0);
        EXPECT_EQ(take_stream(), (std::vector<uint32_t>{1057, 4, 1}));
        EXPECT_EQ(_globals.resource_tables[RESOURCE_EXECBUF]->count, 0);
        EXPECT_TRUE(here().open_objects.empty());
    }
    EXPECT_TRUE(here().unlinked.empty());
}

TEST_F(MemoryTest, AnIdWhoseDestructionCannotBeQueuedStaysTaken)
{
    ASSERT_EQ(define_context(1), 1u);
    ASSERT_EQ(define_surface(1), 1);
    here().reservations_left = 0;
    EXPECT_EQ(request(1, KALIX_CONTEXT_DESTROY, words({1})).value, 0);
    EXPECT_EQ(request(1, KALIX_SURFACE_DESTROY, words({1})).value, 0);
    here().reservations_left = -1;
    EXPECT_EQ(define_context(1), 2u);
    EXPECT_EQ(define_surface(1), 2);
}

} // namespace
} // namespace kalix::test

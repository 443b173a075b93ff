// The registry under several clients, against its three invariants, and its checks.

#include "tests/unit/driver/support.h"

#include "driver/objects/client.h"

#include <map>

namespace kalix::test {
namespace {

constexpr uint32_t clients = 4;

struct registry_model {
    std::map<uint32_t, std::map<uint32_t, uint32_t>> counts; // by sid, by client
    uint32_t total(uint32_t sid) const
    {
        uint32_t sum = 0;
        if (const auto at = counts.find(sid); at != counts.end())
            for (const auto& [client, count] : at->second)
                sum += count;
        return sum;
    }
};

void expect_equal(const registry_model& model, uint32_t sids)
{
    for (uint32_t sid = 1; sid <= sids; ++sid) {
        const resource_object* const object = resource_get_global(RESOURCE_SURFACE, sid);
        ASSERT_EQ(object ? object->total_ref_count : 0, model.total(sid)) << "sid " << sid;
        for (uint32_t client = 1; client <= clients; ++client) {
            const auto at = model.counts.find(sid);
            const bool holds = at != model.counts.end() && at->second.contains(client);
            client_record* const record = client_get({1000 + client, 0, client, 0});
            ASSERT_EQ(resource_have_ref(RESOURCE_SURFACE, record, sid), holds) << "sid " << sid << " of " << client;
            ASSERT_EQ(resource_get(RESOURCE_SURFACE, record, sid), holds ? object : nullptr);
        }
    }
}

TEST_F(driver_test, RegistryKeepsItsInvariantsUnderRandomClients)
{
    std::mt19937 random{test_seed()};
    registry_model model;
    uint32_t last_sid = 0;
    for (int step = 0; step < 1500; ++step) {
        SCOPED_TRACE(testing::Message() << "seed " << test_seed() << ", step " << step);
        const uint32_t client = 1 + below(random, clients);
        const uint32_t sid = 1 + below(random, 12);
        switch (below(random, 12)) {
        case 0:
            disconnect(client);
            for (auto& [id, holders] : model.counts)
                holders.erase(client);
            break;
        case 1:
        case 2:
        case 3:
            if (model.total(sid) == 0 && last_sid < 10) {
                const int32_t made = define_surface(client);
                ASSERT_GT(made, 0);
                ASSERT_EQ(model.total(static_cast<uint32_t>(made)), 0u);
                model.counts[static_cast<uint32_t>(made)] = {{client, 1}};
            }
            break;
        case 4:
        case 5:
        case 6:
        case 7: {
            const answer got = request(client, KALIX_SURFACE_REFERENCE, words({sid}));
            ASSERT_EQ(got.value, model.total(sid) != 0 ? 0 : -2);
            if (model.total(sid) != 0)
                ++model.counts[sid][client];
            break;
        }
        default: {
            auto& holders = model.counts[sid];
            const bool holds = holders.contains(client);
            ASSERT_EQ(request(client, KALIX_SURFACE_DESTROY, words({sid})).value, holds ? 0 : -22);
            if (holds && --holders[client] == 0)
                holders.erase(client);
        }
        }
        expect_equal(model, 14);
    }
}

TEST_F(driver_test, AddAndRefChangeNothingWithoutMemory)
{
    client_record* const one = client_get({1001, 0, 1, 0});
    client_record* const two = client_get({1002, 0, 2, 0});
    auto* const object = new resource_object;
    object->magic_cookie = resource_magic + RESOURCE_CONTEXT;
    object->id = 77;
    for (int nth = 1; nth <= 5; ++nth) {
        fail_allocation(nth);
        EXPECT_EQ(resource_add(RESOURCE_CONTEXT, one, object), 1) << nth;
        EXPECT_EQ(resource_get_global(RESOURCE_CONTEXT, 77), nullptr);
        EXPECT_EQ(resource_have_ref(RESOURCE_CONTEXT, one, 77), 0);
    }
    fail_allocation(0);
    ASSERT_EQ(resource_add(RESOURCE_CONTEXT, one, object), 0);
    for (int nth = 1; nth <= 3; ++nth) {
        fail_allocation(nth);
        EXPECT_EQ(resource_ref(RESOURCE_CONTEXT, two, object), 1) << nth;
        EXPECT_EQ(object->total_ref_count, 1u);
    }
    fail_allocation(0);
    uint32_t destroyed = 7;
    static int calls;
    calls = 0;
    ASSERT_EQ(resource_ref(RESOURCE_CONTEXT, two, object), 0);
    resource_unref(
        RESOURCE_CONTEXT, one, object, [](resource_object*) { ++calls; }, &destroyed);
    EXPECT_EQ(destroyed, 0u);
    resource_unref(
        RESOURCE_CONTEXT, two, object, [](resource_object*) { ++calls; }, &destroyed);
    EXPECT_EQ(destroyed, 1u);
    EXPECT_EQ(calls, 1);
}

TEST_F(driver_test, BrokenConsistencyEndsTheProcess)
{
    client_record* const one = client_get({1001, 0, 1, 0});
    resource_object object;
    object.magic_cookie = resource_magic + RESOURCE_CONTEXT;
    const std::string where = "2 kalix: assert in driver/objects/resource line [0-9]+ failed for ";
    const auto exits = testing::ExitedWithCode(1);
    EXPECT_EXIT(resource_unref(RESOURCE_CONTEXT, one, &object, nullptr, nullptr), exits, where + "client_ref");
    EXPECT_EXIT(resource_unref(RESOURCE_DMA, one, &object, nullptr, nullptr), exits, where + "obj->magic_cookie ==");
    EXPECT_EXIT(resource_get_global(RESOURCE_TOTAL, 1), exits, where + "\\(int\\)type >= 0");
    EXPECT_EXIT(resource_get(RESOURCE_CONTEXT, nullptr, 1), exits, where + "client");
    EXPECT_EXIT(static_cast<void>(resource_add(RESOURCE_CONTEXT, one, nullptr)), exits, where + "client && obj");
}

TEST_F(driver_test, ClientsAreMadeOnceAndAreNotMadeWithoutMemory)
{
    client_record* const made = client_get({1001, 5, 1, 0});
    EXPECT_EQ(client_get({1001, 5, 1, 0}), made);
    EXPECT_EQ(made->pid, 1001u);
    EXPECT_EQ(client_get({1001, 0, 0, 0}), nullptr);
    EXPECT_EQ(client_get({1001, 0, ~0u, 0}), nullptr);
    for (int nth = 1;; nth += 40) {
        fail_allocation(nth, true);
        client_record* const tried = client_get({1002, 0, 2, 0});
        fail_allocation(0);
        if (tried)
            break;
        ASSERT_LT(nth, 4000);
    }
    EXPECT_THAT(take_lines(), testing::Contains("2 kalix: could not allocate client resource ref tables"));
}

} // namespace
} // namespace kalix::test

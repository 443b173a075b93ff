// The status file: what it says of clients, and the ring of events.

#include "driver/screen/display.h"
#include "tests/unit/driver/support.h"

#include <kalix/status.h>
#include <kalix/svga3d_types.h>

namespace kalix::test {
namespace {

class status_test : public driver_test {
protected:
    static constexpr uint32_t me = 1, other = 2;

    static const kalix_status& status() { return *reinterpret_cast<const kalix_status*>(here().status.data()); }
    static const kalix_status_client& of(uint32_t client)
    {
        static const kalix_status_client none{};
        for (const kalix_status_client& each : status().clients)
            if (each.pid == client + 1000)
                return each;
        return none;
    }

    // Kind, process and three words of the events since the last call.
    std::vector<stream> take_events()
    {
        std::vector<stream> out;
        for (; seen_ < status().event_number; ++seen_) {
            const kalix_status_event& each = status().events[seen_ % KALIX_STATUS_EVENTS];
            EXPECT_EQ(each.number, seen_ + 1);
            EXPECT_EQ(each.time_ns, here().time_ns);
            out.push_back({each.kind, each.pid, each.a, each.b, each.c});
        }
        return out;
    }

private:
    uint64_t seen_ = 0;
};

using events = std::vector<stream>;

TEST_F(status_test, TellsWhatAClientHoldsAndWasRefused)
{
    EXPECT_EQ(status().start_ns, 1'000'000'000u);
    EXPECT_STREQ(status().store, "/the/store");
    const uint32_t sid = surface(me, 8, 4, SVGA3D_A8R8G8B8);
    EXPECT_EQ(status().levels[sid], 1);
    EXPECT_EQ(of(me).device_bytes, 8u * 4 * 4);
    // Each holder is told of it once, however often it takes a reference.
    for (int i = 0; i < 2; ++i)
        request(other, KALIX_SURFACE_REFERENCE, bytes_of(surface_reference_req{sid, 0, {}, {}}));
    EXPECT_EQ(of(other).device_bytes, 8u * 4 * 4);
    destroy_surface(other, sid);
    EXPECT_EQ(of(other).device_bytes, 8u * 4 * 4);
    destroy_surface(other, sid);
    EXPECT_EQ(of(other).device_bytes, 0u);
    const auto buffer = ask(me, KALIX_DMABUF_ALLOC, dmabuf_alloc_req{5000, 0, 0, 0, 0});
    EXPECT_EQ(of(me).shared_bytes, 5000u + 4096);
    request(me, KALIX_DMABUF_UNREF, bytes_of(buffer.handle));
    EXPECT_EQ(of(me).shared_bytes, 0u);
    define_surface(me, 0, 0xFFFFFFFF, 0xFFFFFFFF, SVGA3D_A8R8G8B8); // the device's to refuse, and no bytes
    EXPECT_EQ(of(me).device_bytes, 8u * 4 * 4);

    EXPECT_EQ(request(me, KALIX_PRESENT, bytes_of(present_req{sid, 0, 0, 8, 4})).value, 0);
    EXPECT_EQ(request(me, KALIX_PRESENT, bytes_of(present_req{77, 0, 0, 8, 4})).value, -22);
    EXPECT_EQ(of(me).presents, 1u);
    EXPECT_EQ(of(me).refused.count, 1u);
    EXPECT_EQ(of(me).refused.request, static_cast<uint32_t>(KALIX_PRESENT));
    const uint32_t cid = define_context(me);
    const bytes commands = words(command(SVGA_3D_CMD_SETRENDERTARGET, {cid, 0, 4711, 0, 0}));
    command_buffer(me, cid, commands);
    EXPECT_EQ(execute(me, cid, static_cast<uint32_t>(commands.size())).value, -22);
    const kalix_status_refusal why = of(me).refused;
    EXPECT_EQ(why.count, 2u);
    EXPECT_EQ(why.status, -22);
    EXPECT_EQ(why.reason, static_cast<uint32_t>(KALIX_STATUS_REASON_SURFACE));
    EXPECT_EQ(why.command, static_cast<uint32_t>(SVGA_3D_CMD_SETRENDERTARGET));
    EXPECT_EQ(why.named, 4711u);
    EXPECT_EQ(execute(me, cid + 1, 8).value, -22); // nothing of the command before
    EXPECT_EQ(of(me).refused.command, 0u);
    EXPECT_EQ(of(me).shared_bytes, static_cast<uint64_t>(KALIX_COMMAND_BUFFER_BYTES));
    uint32_t made = 1;
    while (request(me, KALIX_CONTEXT_DEFINE, bytes_of(context_define_req{})).value == 0)
        ++made;
    EXPECT_EQ(made, 245u);
    EXPECT_EQ(status().bounds_reached[KALIX_STATUS_BOUND_CONTEXT_IDS], 1u);
    disconnect(me);
    EXPECT_EQ(of(me).pid, 0u);
}

TEST_F(status_test, KeepsARingOfEvents)
{
    const auto id = ask(me, KALIX_OVERLAY_DEFINE, overlay_define_req{0, 0, 8, 8, 1, 0, 0, 0, 0, 0}).id;
    const uint32_t pid = me + 1000;
    EXPECT_EQ(take_events(),
              (events{{KALIX_EVENT_CONNECT, pid, 0, 0, 0}, {KALIX_EVENT_OVERLAY_DEFINED, pid, id, 0, 0}}));
    request(me, KALIX_OVERLAY_VISIBLE, bytes_of(overlay_visible_req{id, 0}));
    request(me, KALIX_OVERLAY_VISIBLE, bytes_of(overlay_visible_req{id, 0}));
    request(me, KALIX_SET_MODE, bytes_of(set_mode_req{100, 60, 32}));
    request(me, KALIX_SVGA_ENABLE, bytes_of(svga_enable_req{1}));
    request(me, KALIX_SVGA_ENABLE, bytes_of(svga_enable_req{0}));
    adapter_set_zoom_level(0.75f);
    EXPECT_EQ(take_events(), (events{{KALIX_EVENT_OVERLAY_VISIBLE, pid, id, 0, 0},
                                     {KALIX_EVENT_MODE, pid, 100, 60, 32},
                                     {KALIX_EVENT_DISPLAY, pid, 1, 0, 0},
                                     {KALIX_EVENT_DISPLAY, pid, 0, 0, 0},
                                     {KALIX_EVENT_ZOOM, 0, 750'000, 0, 0}}));
    // What goes on is told once a second, and another one at once.
    const auto refuse = [this](int32_t command) { request(me, command, bytes_of(uint32_t{77})); };
    const stream refused{KALIX_EVENT_REFUSAL, pid, KALIX_SURFACE_DESTROY, 0, static_cast<uint32_t>(-22)};
    for (int i = 0; i < 5; ++i)
        refuse(KALIX_SURFACE_DESTROY);
    EXPECT_EQ(take_events(), events{refused});
    EXPECT_EQ(of(me).refused.count, 5u);
    here().time_ns += 1'000'000'000;
    refuse(KALIX_SURFACE_DESTROY);
    EXPECT_EQ(take_events(), events{refused});
    refuse(KALIX_DMABUF_UNREF);
    EXPECT_EQ(take_events().size(), 1u);
    disconnect(me);
    EXPECT_EQ(take_events(),
              (events{{KALIX_EVENT_OVERLAY_DESTROYED, pid, id, 0, 0}, {KALIX_EVENT_DISCONNECT, pid, 13, 0, 0}}));
    for (uint32_t i = 0; i < KALIX_STATUS_EVENTS; ++i)
        adapter_set_zoom_level(i % 2 ? 0.5f : 1);
    EXPECT_EQ(status().event_number, 12u + KALIX_STATUS_EVENTS);
    EXPECT_EQ(status().events[11].number, 12u + KALIX_STATUS_EVENTS); // the oldest has been written over
}

} // namespace
} // namespace kalix::test

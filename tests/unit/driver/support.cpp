#include "tests/unit/driver/support.h"

#include "driver/objects/surface.h"
#include "driver/startup.h"

#include <kalix/svga3d_types.h>
#include <span>

namespace kalix::test {

void set_world(std::unique_ptr<world> to);

namespace {

mutex device_lock;
int32_t next_rcvid;

} // namespace

void replace_object(const std::string& name)
{
    here().nameless.push_back(here().objects.extract(name));
    here().objects[name].resize(KALIX_COMMAND_BUFFER_BYTES);
}

bytes words(const stream& list)
{
    bytes out(list.size() * 4);
    std::ranges::copy(std::as_bytes(std::span{list}), out.begin());
    return out;
}

stream words_of(const bytes& from)
{
    stream out(from.size() / 4);
    std::copy_n(from.begin(), out.size() * 4, std::as_writable_bytes(std::span{out}).begin());
    return out;
}

stream command(uint32_t id, const stream& body)
{
    stream out{id, static_cast<uint32_t>(body.size() * 4)};
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

void driver_test::SetUp()
{
    set_world(std::make_unique<world>());
    reset_globals();
    here().device.capabilities = SVGA_CAP_GMR2 | SVGA_CAP_EXTENDED_FIFO;
    here().device.zoom = 1;
    SVGA_Init();
    SVGA_SetMode(64, 48, 32, 1);
    next_rcvid = 1;
    _globals.settings.max_delay_us = 1000;
    ASSERT_EQ(kalix_init(&device_lock), 0);
    take_lines();
    take_stream();
    take_calls();
    here().waited.clear();
}

void driver_test::TearDown()
{
    fail_allocation(0);
    here().reservations_left = -1;
    for (uint32_t client = 1; client < 16; ++client)
        disconnect(client);
    for (hashtable<resource_object>* table : _globals.resource_tables) {
        EXPECT_TRUE(hashtable_is_empty(table));
        hashtable_destroy(table);
    }
    {
        hold lock{_globals.client_lock};
        EXPECT_TRUE(hashtable_is_empty(_globals.client_table));
        hashtable_destroy(_globals.client_table);
    }
    EXPECT_TRUE(hashtable_is_empty(_globals.handed_out_sids));
    hashtable_destroy(_globals.handed_out_sids);
    hold lock{_globals.work_lock};
    linkedlist_destroy(_globals.work_queue);
    std::free(_globals.dirty_gmr_buffer);
    for (surface_record* own : _globals.postprocess_surfaces)
        delete own;
    for (id_pool* pool : {&_globals.surface_ids, &_globals.dma_ids, &_globals.context_ids, &_globals.overlay_ids})
        id_destroy_pool(pool);
    EXPECT_TRUE(here().open_objects.empty());
    EXPECT_EQ(here().mappings, 0);
    EXPECT_EQ(_globals.shares.first, nullptr);
    set_world(nullptr);
}

answer driver_test::request(uint32_t client, int32_t command, const bytes& payload, const bytes& behind)
{
    const kalix_request_header header{KALIX_REQUEST_MAGIC, command, static_cast<int32_t>(payload.size())};
    bytes message = bytes_of(header);
    message.insert(message.end(), payload.begin(), payload.end());
    message.insert(message.end(), behind.begin(), behind.end());
    const workitem item{header.magic,
                        command,
                        header.payload_length,
                        next_rcvid++,
                        {1000 + client, client / 8, client, static_cast<uint32_t>(message.size())}};
    here().messages[item.rcvid] = message;
    const auto lines_before = std::ssize(here().lines);
    const auto bytes_before = std::ssize(here().stream);
    dispatch(item);
    answer got = here().answers[item.rcvid];
    got.said.assign(here().lines.begin() + lines_before, here().lines.end());
    got.sent = words_of({here().stream.begin() + bytes_before, here().stream.end()});
    return got;
}

void driver_test::disconnect(uint32_t client)
{
    dispatch({KALIX_REQUEST_MAGIC, KALIX_DISCONNECT, 0, 0, {0, 0, client, 0}});
}

void driver_test::expect_refused(const answer& got, int32_t status, const lines& said)
{
    EXPECT_EQ(got.value, status);
    EXPECT_EQ(got.said, said);
    EXPECT_TRUE(got.sent.empty());
}

uint32_t driver_test::define_context(uint32_t client)
{
    const answer got = request(client, KALIX_CONTEXT_DEFINE, words({0, 0}));
    EXPECT_EQ(got.value, 0);
    return record_of<context_define_req>(got.data).cid;
}

int32_t driver_test::define_surface(uint32_t client, uint32_t sid, uint32_t width, uint32_t height, uint32_t format,
                                    uint32_t shared)
{
    constexpr uint32_t sizes_offset = sizeof(kalix_request_header) + sizeof(surface_define_req);
    const surface_define_req req{SVGA3D_SURFACE_HINT_TEXTURE, format, {1}, sizes_offset, 0, 0, shared, sid};
    const answer got = request(client, KALIX_SURFACE_DEFINE, bytes_of(req), words({width, height, 1, 0}));
    return got.value == 0 ? static_cast<int32_t>(record_of<uint32_t>(got.data)) : got.value;
}

uint32_t driver_test::surface(uint32_t client, uint32_t width, uint32_t height, uint32_t format)
{
    const int32_t sid = define_surface(client, 0, width, height, format);
    EXPECT_GT(sid, 0);
    return static_cast<uint32_t>(sid);
}

int32_t driver_test::destroy_surface(uint32_t client, uint32_t sid)
{
    return request(client, KALIX_SURFACE_DESTROY, words({sid})).value;
}

bytes& driver_test::command_buffer(uint32_t client, uint32_t number, const bytes& commands)
{
    const std::string name = "/execbuf_" + std::to_string(1000 + client) + "_" + std::to_string(number);
    here().owners[name] = client / 8;
    bytes& object = here().objects[name];
    object.resize(KALIX_COMMAND_BUFFER_BYTES); // grows once; a mapping of it stays good
    std::copy(commands.begin(), commands.end(), object.begin());
    return object;
}

answer driver_test::execute(uint32_t client, uint32_t number, uint32_t byte_count, uint32_t delay_us)
{
    return request(client, KALIX_EXECBUF, bytes_of(execbuf_req{number, byte_count, delay_us, {}}));
}

lines driver_test::take_lines()
{
    return std::exchange(here().lines, {});
}

lines driver_test::take_calls()
{
    return std::exchange(here().calls, {});
}

stream driver_test::take_stream()
{
    return words_of(std::exchange(here().stream, {}));
}

uint32_t below(std::mt19937& random, uint32_t limit)
{
    return static_cast<uint32_t>(random() % limit);
}

} // namespace kalix::test

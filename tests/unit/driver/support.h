// The driver on a fake platform and a fake device: what it is given, and all that it did.
//
// The fakes stand in for every platform call and every SVGA_ function; the 3D builders are the real ones. One
// world at a time: driver_test makes it, brings the driver up in it, and takes it down.
#pragma once

#include "driver/dispatch.h"
#include "driver/objects/resource.h"
#include "tests/support.h"

#include <cstring>
#include <deque>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace kalix::test {

using bytes = std::vector<std::byte>;
using lines = std::vector<std::string>;
using stream = std::vector<uint32_t>;

struct answer {
    bool is_error = false; // value is an error number, else a status
    int32_t value = 0;
    bytes data{};
    lines said{}; // and what the device got, meanwhile
    stream sent{};
};

struct received {      // what the fake MsgReceivev hands out
    int32_t rcvid = 0; // 0: a pulse
    platform::_msg_info info{};
    bytes message;
};

struct world {
    test::lines lines;                 // "2 kalix: ...": severity and text
    std::map<int32_t, bytes> messages; // by receive id
    std::map<int32_t, answer> answers;
    std::deque<received> incoming;
    std::map<std::string, bytes> objects;                         // shared memory by name
    std::map<std::string, uint32_t> owners;                       // users of them; 0 unless noted
    std::deque<std::map<std::string, bytes>::node_type> nameless; // objects that lost their name
    std::map<int32_t, bytes*> open_objects;                       // by descriptor
    size_t descriptors = 1 << 20;                                 // that objects may take
    std::vector<uint32_t> detached;                               // connections given back
    int mappings = 0;
    std::vector<std::string> unlinked;
    std::function<uint64_t(const void*)> physical; // identity when empty
    uint32_t regions = 5;                          // that the device has
    bool refuse_map = false, refuse_attach = false, refuse_library = false, refuse_self_connection = false;
    bool refuse_device = false, refuse_3d = false, refuse_clients = false, refuse_calloc = false;
    std::function<void()> on_begin; // when the process begins, its state as at the start
    uint64_t slept_us = 0;
    uint32_t own_uid = 0;

    bytes stream; // what was committed to the FIFO
    bytes reservation;
    int reservations_left = -1; // before they are refused; -1: never
    std::vector<uint32_t> fifo = std::vector<uint32_t>(4096);
    uint32_t fence = 0;
    std::vector<uint32_t> waited; // fences waited for
    std::vector<std::pair<uint32_t, uint32_t>> register_writes;
    std::vector<uint8_t> framebuffer = std::vector<uint8_t>(1 << 20);
    svga_device device{};
    std::function<void()> on_wait;  // the device's work while a fence is awaited
    std::vector<std::string> calls; // of SVGA_SetMode, SVGA_Update, the cursor's functions

    std::string config; // the published object
    bool config_unread = true, refuse_config = false, refuse_write = false;
    std::string store = "/the/store"; // the directory that it lies in
    uint64_t time_ns = 1'000'000'000; // of day
    std::string machine = "x86_64";
    int armed = 0;                                                   // times that its notification was
    std::vector<std::byte> status = std::vector<std::byte>(1 << 18); // the published file
    bool refuse_status = false;
};

world& here();

int live_allocations(); // made by the driver and not given back

// Fails the nth allocation from now (1: the next), and all after it when lasting; 0 stops.
void fail_allocation(int nth, bool lasting = false);

// What a call answers when the nth allocation in it fails.
template <typename function>
auto failing(int nth, function call, bool lasting = false)
{
    fail_allocation(nth, lasting);
    const auto got = call();
    fail_allocation(0);
    return got;
}

// What a call answers when the FIFO takes so many reservations and no more.
template <typename function>
auto with_reservations(int left, function call)
{
    here().reservations_left = left;
    const auto got = call();
    here().reservations_left = -1;
    return got;
}

template <typename record>
bytes bytes_of(const record& from)
{
    const auto* const at = reinterpret_cast<const std::byte*>(&from);
    return {at, at + sizeof from};
}
template <typename record>
record record_of(const bytes& from)
{
    record to{};
    std::memcpy(&to, from.data(), std::min(sizeof to, from.size()));
    return to;
}
// What a client does that puts a new object under a name.
void replace_object(const std::string& name);

bytes words(const stream& list);
stream words_of(const bytes& from);

// A 3D command: its id, the bytes of its body, the body.
stream command(uint32_t id, const stream& body);

class driver_test : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Sends a request of a client (its connection id; its process id is 1000 more) and returns its answer.
    answer request(uint32_t client, int32_t command, const bytes& payload, const bytes& behind = {});
    // The same with a record, of which the reply is one too.
    template <typename record>
    record ask(uint32_t client, int32_t command, const record& req)
    {
        return record_of<record>(request(client, command, bytes_of(req)).data);
    }
    void disconnect(uint32_t client);
    // That a request was refused, with those lines, and that the device got nothing.
    static void expect_refused(const answer& got, int32_t status, const lines& said);

    uint32_t define_context(uint32_t client);
    // A surface of one level, or the status when it is refused.
    int32_t define_surface(uint32_t client, uint32_t sid = 0, uint32_t width = 4, uint32_t height = 4,
                           uint32_t format = 2, uint32_t shared = 0);
    uint32_t surface(uint32_t client, uint32_t width = 4, uint32_t height = 4, uint32_t format = 2);
    int32_t destroy_surface(uint32_t client, uint32_t sid);
    // The shared object of a client's command buffer, filled.
    bytes& command_buffer(uint32_t client, uint32_t number, const bytes& commands);
    answer execute(uint32_t client, uint32_t number, uint32_t byte_count, uint32_t delay_us = 0);

    // The lines since the last call.
    lines take_lines();
    stream take_stream();
    lines take_calls();
};

uint32_t below(std::mt19937& random, uint32_t limit);

} // namespace kalix::test

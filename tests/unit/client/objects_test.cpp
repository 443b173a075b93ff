// Shared memory: DMA buffers, command buffers and readback places, and the C++ types that own them.

#include "tests/unit/client/fake_server.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <gmock/gmock.h>
#include <kalix/client.hpp>
#include <numeric>
#include <sys/mman.h>
#include <unistd.h>

namespace kalix::test {
namespace {

using testing::ElementsAre;

std::string own(const char* format, uint32_t number)
{
    char name[64];
    std::snprintf(name, sizeof name, format, static_cast<unsigned>(getpid()), number);
    return name;
}

class Objects : public testing::Test {
protected:
    std::function<reaction(const received&)> answer = echo;
    fake_server server{[this](const received& request) { return answer(request); }};
    open_client connection{server};

    std::filesystem::path object(const std::string& name) const { return server.object(name); }
    // What the server answers when it has made a DMA buffer whose bytes begin at an offset.
    void grant_buffers(uint32_t offset, uint32_t handle)
    {
        answer = [offset, handle](const received& request) {
            return request.command() == KALIX_DMABUF_ALLOC ? reply(0, {offset, 0, handle, 2, 0, handle})
                                                           : echo(request);
        };
    }
};

TEST_F(Objects, DmaBufferIsMappedBehindItsOffset)
{
    constexpr uint32_t size = 10'000;
    for (const uint32_t offset : {4096U, 1U, 777U}) {
        put(object("svga_dma_9"), std::string(size + 4096, '.'));
        grant_buffers(offset, 9);
        kalix_dma_buffer buffer{};
        ASSERT_EQ(kalix_dmabuf_alloc(connection, size, &buffer), 0);
        EXPECT_EQ(server.requests().back().word(3), size);
        EXPECT_EQ(buffer.size, size);
        EXPECT_EQ(buffer.handle, 9U);
        EXPECT_EQ(buffer.gmr_id, 2U);
        std::memset(buffer.data, 'x', size);
        std::string expected(size + 4096, '.');
        expected.replace(offset, size, size, 'x');
        EXPECT_EQ(contents(object("svga_dma_9")), expected) << "offset " << offset;
        EXPECT_EQ(kalix_dmabuf_unref(connection, &buffer), 0);
        EXPECT_EQ(buffer.data, nullptr);
        EXPECT_EQ(server.requests().back().word(3), 9U);
    }
}

TEST_F(Objects, DmaBufferThatCannotBeMappedIsGivenBack)
{
    put(object("svga_dma_9"), std::string(8191, '.'));
    put(object("elsewhere"), std::string(9000, '.'));
    create_symlink(object("elsewhere"), object("svga_dma_11"));
    struct {
        const char* name;
        uint32_t offset, handle;
        int result;
    } const rows[]{{"a byte short", 4096, 9, -EPROTO},
                   {"no object", 4096, 10, -ENOENT},
                   {"a link", 4096, 11, -ELOOP},
                   {"an offset beyond any page", 70'000, 9, -EPROTO}};
    for (const auto& row : rows) {
        grant_buffers(row.offset, row.handle);
        kalix_dma_buffer buffer{};
        EXPECT_EQ(kalix_dmabuf_alloc(connection, 4096, &buffer), row.result) << row.name;
        EXPECT_EQ(buffer.mapping, nullptr) << row.name;
        EXPECT_EQ(server.requests().back().command(), KALIX_DMABUF_UNREF) << row.name;
        EXPECT_EQ(server.requests().back().word(3), row.handle) << row.name;
    }
}

TEST_F(Objects, CommandBufferLivesAsLongAsItsContext)
{
    const std::string name = own("execbuf_%u_%u", 4);
    put(object("victim"), "precious");
    create_symlink(object("victim"), object(name));
    kalix_commands *list = nullptr, *again = nullptr;
    ASSERT_EQ(kalix_command_buffer(connection, 4, &list), 0);
    EXPECT_EQ(contents(object("victim")), "precious") << "a link of that name is replaced, not followed";
    EXPECT_TRUE(is_regular_file(symlink_status(object(name))));
    EXPECT_EQ(list->capacity, uint32_t{KALIX_COMMAND_BUFFER_BYTES});
    ASSERT_EQ(kalix_command_buffer(connection, 4, &again), 0);
    EXPECT_EQ(list, again);

    kalix_cmd_surface_destroy(list, 0x41414141);
    EXPECT_EQ(contents(object(name)).substr(8, 4), "AAAA");
    EXPECT_EQ(contents(object(name)).size(), size_t{KALIX_COMMAND_BUFFER_BYTES});

    answer = [](const received&) { return reply(-22); };
    EXPECT_EQ(kalix_submit(connection, 4, nullptr), -EINVAL);
    EXPECT_EQ(list->used, 12U) << "refused commands stay";
    answer = [](const received&) { return reply(0, {51, 3, 51, 50, 0, 0, 0, 0}); };
    uint32_t fence = 0;
    EXPECT_EQ(kalix_submit(connection, 4, &fence), 0);
    EXPECT_EQ(fence, 51U);
    EXPECT_EQ(list->used, 0U);
    EXPECT_THAT(server.requests().back().as_words(),
                ElementsAre(uint32_t{KALIX_REQUEST_MAGIC}, 12, 32, 4, 0, 12, 0, 0, 0, 0, 0));
    EXPECT_EQ(kalix_submit(connection, 5, nullptr), -ENOENT);

    answer = echo;
    EXPECT_EQ(kalix_context_destroy(connection, 4), 0);
    EXPECT_FALSE(exists(object(name)));
    EXPECT_EQ(kalix_submit(connection, 4, nullptr), -ENOENT);
}

TEST_F(Objects, CommandBuffersLeaveNoFilesBehind)
{
    kalix_commands* list = nullptr;
    {
        const open_client closed{server};
        for (const uint32_t number : {1U, 2U, 3U})
            ASSERT_EQ(kalix_command_buffer(closed, number, &list), 0);
        EXPECT_EQ(kalix_context_destroy(closed, 2), 0);
    }
    EXPECT_TRUE(is_empty(object("")));
    ASSERT_EQ(kalix_command_buffer(connection, 1, &list), 0);
    EXPECT_EQ(kalix_disconnect(connection), 0);
    EXPECT_TRUE(is_empty(object("")));
    EXPECT_EQ(kalix_submit(connection, 1, nullptr), -ENOENT);
}

TEST_F(Objects, ReadbackCopiesTheRectangleAndNothingElse)
{
    // What the server refuses, here a surface of another size, has not spent the surface's one place.
    words some(16);
    const kalix_readback_area small{6, 4, 4, SVGA3D_A8R8G8B8, 0, 0, 4, 4};
    answer = [](const received&) { return reply(-22); };
    EXPECT_EQ(kalix_readback(connection, &small, some.data(), 16), -EINVAL);

    readback_req last{};
    std::fstream file; // the server keeps the object that it opens first, and writes rows at y x pitch
    answer = [&](const received& request) {
        std::memcpy(&last, request.message.data() + sizeof(kalix_request_header), sizeof last);
        if (!file.is_open())
            file.open(object(own("vm_svga:%u:%u", static_cast<uint32_t>(last.shm_number))),
                      std::ios::binary | std::ios::in | std::ios::out);
        for (uint32_t y = last.y; y < last.y + last.h; ++y) {
            words row(last.w);
            std::iota(row.begin(), row.end(), y << 16 | last.x);
            file.seekp(static_cast<std::streamoff>(y) * last.pitch + std::streamoff{4} * last.x);
            file.write(reinterpret_cast<const char*>(row.data()), static_cast<std::streamsize>(row.size() * 4));
        }
        return reply(file.flush() ? 0 : -12);
    };
    constexpr uint32_t width = 40, height = 30, stride = 50; // of the surface; of the caller's rows, pixels
    const svga3d_rect rows[]{{0, 0, 40, 30}, {39, 29, 1, 1}, {7, 3, 20, 5}, {0, 29, 40, 1}};
    for (const svga3d_rect& rect : rows) {
        const kalix_readback_area area{6, width, height, SVGA3D_A8R8G8B8, rect.x, rect.y, rect.w, rect.h};
        words pixels(size_t{stride} * height, 0xEEEEEEEE);
        ASSERT_EQ(kalix_readback(connection, &area, pixels.data(), size_t{stride} * 4), 0);
        EXPECT_EQ(last.pitch, width * 4);
        EXPECT_EQ(last.shm_size, width * height * 4);
        words expected(pixels.size(), 0xEEEEEEEE);
        for (uint32_t y = 0; y < rect.h; ++y)
            for (uint32_t x = 0; x < rect.w; ++x)
                expected[size_t{y} * stride + x] = (rect.y + y) << 16 | (rect.x + x);
        EXPECT_EQ(pixels, expected) << rect.x << ", " << rect.y;
    }
    const open_client second{server};
    const kalix_readback_area corner{6, width, height, SVGA3D_A8R8G8B8, 1, 2, 1, 1};
    uint32_t pixel = 0;
    EXPECT_EQ(kalix_readback(second, &corner, &pixel, 4), 0);
    EXPECT_EQ(pixel, 0x20001U);
    const kalix_readback_area larger{6, width + 1, height, SVGA3D_A8R8G8B8, 0, 0, 1, 1};
    EXPECT_EQ(kalix_readback(connection, &larger, &pixel, 4), -EINVAL); // the server has the place by now
}

TEST_F(Objects, ReadbackRefusesWhatTheServerWould)
{
    struct {
        const char* name;
        kalix_readback_area area;
        size_t stride;
        int result;
    } const rows[]{{"beyond the right edge", {6, 40, 30, 2, 39, 0, 2, 1}, 400, -EINVAL},
                   {"beyond the bottom", {6, 40, 30, 2, 0, 1, 1, 30}, 400, -EINVAL},
                   {"a sum that wraps", {6, 40, 30, 2, 1, 0, UINT32_MAX, 1}, SIZE_MAX, -EINVAL},
                   {"beyond the reach", {6, 4096, 30, 2, 2000, 0, 49, 1}, 400, -EINVAL},
                   {"rows that overlap", {6, 40, 30, 2, 0, 0, 10, 1}, 39, -EINVAL},
                   {"a surface too large", {6, UINT32_MAX, 2, 2, 0, 0, 1, 2}, 400, -EINVAL},
                   {"a compressed format", {6, 40, 30, SVGA3D_DXT1, 0, 0, 4, 4}, 400, -ENOTSUP},
                   {"no such format", {6, 40, 30, 44, 0, 0, 4, 4}, 400, -ENOTSUP}};
    words pixels(4096);
    for (const auto& row : rows)
        EXPECT_EQ(kalix_readback(connection, &row.area, pixels.data(), row.stride), row.result) << row.name;
    EXPECT_TRUE(server.requests().empty());
}

struct sent_object {
    const char* name;
    int32_t status;
    off_t bytes; // of what is sent beside; 0: nothing
    int result;
};

// Without a directory to reach them in, objects come from the server, under the number that it knows us by.
TEST_F(Objects, ComeOverTheConnectionWhereThereAreNoFiles)
{
    std::filesystem::remove(server.path() / "shm");
    answer = [](const received& request) {
        return request.word(0) == KALIX_PLATFORM_MAGIC ? reply(89, {}, KALIX_REPLY_ERROR) : echo(request);
    };
    kalix_connection* refused = nullptr;
    EXPECT_EQ(kalix_open(server.path().c_str(), &refused), -ENOENT); // a server that has files alone

    unique_fd memory;
    sent_object now{};
    answer = [&](const received& request) {
        if (request.word(0) != KALIX_PLATFORM_MAGIC)
            return echo(request);
        if (request.word(1) == KALIX_WHO)
            return reply(0, {777, 0, 1, 0});
        memory = unique_fd{memfd_create("object", MFD_CLOEXEC)};
        EXPECT_EQ(ftruncate(memory.get(), now.bytes), 0);
        reaction beside = reply(now.status);
        beside.descriptor = now.bytes ? memory.get() : -1;
        return beside;
    };
    const open_client here{server};
    kalix_commands* list = nullptr;
    for (const sent_object& row : {sent_object{"refused", -12, 0, -ENOMEM},
                                   {"nothing beside it", 0, 0, -EPROTO},
                                   {"too short", 0, 65535, -EPROTO},
                                   {"good", 0, 65536, 0}}) {
        now = row;
        EXPECT_EQ(kalix_command_buffer(here, 4, &list), row.result) << row.name;
    }
    const received asked = server.requests().back();
    kalix_object_req wanted{};
    std::memcpy(&wanted, asked.message.data() + sizeof(kalix_platform_header), sizeof wanted);
    EXPECT_STREQ(wanted.name, "execbuf_777_4");
    EXPECT_TRUE(wanted.bytes == 65536 && wanted.make == 1);
    std::memcpy(list->memory, "shared", 6);
    char seen[6];
    EXPECT_EQ(pread(memory.get(), seen, 6, 0), 6);
    EXPECT_EQ(std::memcmp(seen, "shared", 6), 0);
}

TEST_F(Objects, CxxTypesGiveBackWhatTheyOwn)
{
    put(object("svga_dma_9"), std::string(8192, '.'));
    uint32_t next = 3;
    answer = [&next](const received& request) {
        switch (request.command()) {
        case KALIX_CONTEXT_DEFINE:
            return reply(0, {next++, 0});
        case KALIX_SURFACE_DEFINE:
            return reply(0, {next++, 2});
        case KALIX_DMABUF_ALLOC:
            return reply(0, {4096, 0, 9, 2, 0, 9});
        default:
            return echo(request);
        }
    };
    {
        client::connection first{server.path().c_str()};
        const client::connection moved{std::move(first)};
        client::dma_buffer buffer{moved, 4096};
        client::surface target{moved, 0, SVGA3D_A8R8G8B8, 4, 4};
        client::context context{moved};
        client::context context_moved{std::move(context)};
        EXPECT_EQ(buffer.at(16).gmr_id, 2U);
        context_moved.commands().set_z_range(0, 1);
        context_moved.commands().submit();
        target = client::surface{moved, 0, SVGA3D_A8R8G8B8, 8, 8};
    }
    std::vector<int32_t> commands;
    for (const received& request : server.requests())
        commands.push_back(request.command());
    EXPECT_THAT(commands, ElementsAre(1, 9, 7, 12, 9, 10, 8, 10, 2));
    EXPECT_TRUE(exists(object("svga_dma_9")));

    answer = [](const received&) { return reply(-12); };
    const client::connection refusing{server.path().c_str()};
    try {
        const client::context context{refusing};
        FAIL() << "a refused context must throw";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::not_enough_memory);
        EXPECT_THAT(error.what(), testing::HasSubstr("define a context"));
    }
}

} // namespace
} // namespace kalix::test

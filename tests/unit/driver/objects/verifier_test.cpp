// The verifier: a table of commands, good ones bent in one place, and random buffers before a guard page.

#include "tests/unit/driver/support.h"

#include "driver/objects/verifier.h"

#include <kalix/svga3d_types.h>
#include <sys/mman.h>
#include <unistd.h>

namespace kalix::test {
namespace {

constexpr uint32_t invalid = 0xFFFFFFFF;
constexpr uint32_t foreign_cid = 2, foreign_sid = 3; // of another client

class VerifierTest : public driver_test {
protected:
    void SetUp() override
    {
        driver_test::SetUp();
        ASSERT_EQ(define_context(1), 1u);
        ASSERT_EQ(define_context(2), foreign_cid);
        ASSERT_EQ(define_surface(1), 1);
        ASSERT_EQ(define_surface(1), 2);
        ASSERT_EQ(define_surface(2), static_cast<int32_t>(foreign_sid));
        map_ = ::mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        ASSERT_EQ(::mprotect(end(), page_, PROT_NONE), 0);
        take_lines();
    }

    void TearDown() override
    {
        ::munmap(map_, 2 * page_);
        driver_test::TearDown();
    }

    // Checks commands that end right before a page that cannot be read.
    int check(const bytes& commands)
    {
        client_record* const client = client_get({1001, 0, 1, 0});
        std::byte* const at = end() - commands.size();
        std::copy(commands.begin(), commands.end(), at);
        return cmd_check_all(client, {at, commands.size()});
    }

    int check(const stream& list) { return check(words(list)); }

private:
    size_t page_ = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
    void* map_ = nullptr;
    std::byte* end() const { return static_cast<std::byte*>(map_) + page_; }
};

// Two declarations and a range, all ids held, or one word of it replaced.
stream draw(size_t at = 0, uint32_t value = 1063)
{
    stream all =
        command(1063, {1, 2, 1, 1, 0, 0, 0, 1, 0, 16, 0, 0, 1, 0, 5, 0, 2, 0, 16, 0, 0, 1, 1, invalid, 0, 2, 2, 0});
    all[at] = value;
    return all;
}

std::string refused(uint32_t id)
{
    return "2 kalix: cmd_check: illegal / invalid SVGA3D command: " + std::to_string(static_cast<int>(id));
}

TEST_F(VerifierTest, Table)
{
    const std::string context = "2 kalix: cmd_cid_check: could not find or use context 0x2";
    const std::string surface = "2 kalix: cmd_sid_check: could not find or use surface 0x00000003";
    const std::string sync = "2 kalix: command verifier out of sync.";
    const std::string declarations = "2 kalix: cmd_draw: illegal number of vertex declarations.";
    const std::tuple<const char*, stream, lines> rows[] = {
        {"empty", {}, {}},
        {"update", {1, 0, 0, 9, 9}, {}},
        {"update cut", {1, 0, 0, 9}, {sync}},
        {"unreadable header", {1063}, {refused(1063)}},
        {"clear", command(1057, {1, 1, 0, 0, 0}), {}},
        {"clear of another's", command(1057, {2}), {context, refused(1057)}},
        {"context all ones", command(1057, {invalid}), {}},
        {"no body", command(1057, {}), {refused(1057)}},
        {"longer than the buffer", {1057, 5, 1}, {refused(1057)}},
        {"size wraps", {1057, 0xFFFFFFFC, 1}, {refused(1057)}},
        {"below the table", command(1039, {1}), {refused(1039)}},
        {"no command", command(1070, {1}), {refused(1070)}},
        {"last of the table", command(1081, {1}), {refused(1081)}},
        {"behind the table", command(1082, {1}), {refused(1082)}},
        {"2d fence", command(30, {1}), {refused(30)}},
        {"define surface", command(1040, {}), {}},
        {"destroy surface", command(1041, {3}), {}},
        {"define context", command(1045, {2}), {}},
        {"destroy context", command(1046, {2}), {}},
        {"dma", command(1044, {}), {}},
        {"present readback", command(1068, {}), {}},
        {"copy", command(1042, {1, 0, 0, invalid, 0, 0}), {}},
        {"copy to another's", command(1042, {1, 0, 0, 3, 0, 0}), {surface, refused(1042)}},
        {"copy from another's", command(1042, {3, 0, 0, 1, 0, 0}), {surface, refused(1042)}},
        {"copy without destination", command(1042, {1, 0, 0}), {refused(1042)}},
        {"stretch to another's", command(1043, {1, 0, 0, 3, 0, 0}), {surface, refused(1043)}},
        {"present", command(1058, {2}), {}},
        {"present another's", command(1058, {3}), {surface, refused(1058)}},
        {"blit another's", command(1069, {3}), {surface, refused(1069)}},
        {"target", command(1050, {1, 2, 1, 0, 0}), {}},
        {"target of another", command(1050, {1, 2, 3, 0, 0}), {surface, refused(1050)}},
        {"target in another's context", command(1050, {2, 2, 3, 0, 0}), {context, refused(1050)}},
        {"target without surface", command(1050, {1, 2}), {refused(1050)}},
        {"texture", command(1051, {1, 0, 1, 2, 0, 2, 3}), {}},
        {"texture of another", command(1051, {1, 0, 2, 3, 0, 1, 3}), {surface, refused(1051)}},
        {"texture state cut", command(1051, {1, 0, 2, 3, 0, 1}), {refused(1051)}},
        {"end query", command(1066, {1, 0, 9, 9}), {}},
        {"wait query", command(1067, {2, 0, 9, 9}), {context, refused(1067)}},
        {"draw", draw(), {}},
        {"draw in another's context", draw(2, 2), {context, refused(1063)}},
        {"one more declaration", draw(3, 3), {declarations, refused(1063)}},
        {"many declarations", draw(3, 0x71C71C8), {declarations, refused(1063)}}, // 36 times it wraps to a little
        {"one more range", draw(4, 2), {"2 kalix: cmd_draw: illegal number of index ranges.", refused(1063)}},
        {"another's vertices", draw(9, 3), {surface, refused(1063)}},
        {"another's indices", draw(25, 3), {surface, refused(1063)}},
        {"draw without counts", command(1063, {1, 0}), {refused(1063)}},
    };
    for (const auto& [name, sent, wanted] : rows) {
        SCOPED_TRACE(name);
        EXPECT_EQ(check(sent), wanted.empty() ? 0 : -22);
        lines said = take_lines();
        for (std::string& line : said) {
            const size_t address = line.find(" address 0x");
            if (address == std::string::npos)
                continue;
            EXPECT_LT(std::stoul(line.substr(address + 11), nullptr, 16), words(sent).size()) << "within the buffer";
            line.erase(address);
        }
        EXPECT_EQ(said, wanted);
    }
}

TEST_F(VerifierTest, CutAtEveryByteItIsRefused)
{
    stream sent;
    for (const stream& each : {command(1042, {1, 0, 0, 2, 0, 0}), stream{1, 0, 0, 1, 1}, draw()})
        sent.insert(sent.end(), each.begin(), each.end());
    const bytes all = words(sent);
    ASSERT_EQ(check(all), 0);
    const std::vector<size_t> borders = {0, 32, 52, all.size()};
    for (size_t length = 0; length <= all.size(); ++length)
        ASSERT_EQ(check(bytes(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(length))),
                  std::ranges::find(borders, length) != borders.end() ? 0 : -22)
            << length;
}

// Never reads past the end, and never accepts a buffer that a plain walk finds malformed or foreign.
TEST_F(VerifierTest, RandomBuffers)
{
    std::mt19937 random{test_seed()};
    int accepted = 0;
    for (int round = 0; round < 20000; ++round) {
        bytes buffer(below(random, 120));
        for (std::byte& b : buffer)
            b = static_cast<std::byte>(below(random, 6) == 0 ? random() : below(random, 4));
        for (size_t at = 0; at + 8 <= buffer.size() && below(random, 8) != 0;) {
            const uint32_t header[2] = {1038 + below(random, 46), below(random, 40)};
            std::memcpy(&buffer[at], header, sizeof header);
            at += 8 + header[1];
        }
        const int verdict = check(buffer);
        ASSERT_TRUE(verdict == 0 || verdict == -22);
        if (verdict != 0)
            continue;
        ++accepted;
        size_t at = 0;
        while (at < buffer.size()) {
            uint32_t header[2] = {};
            ASSERT_LE(at + 8, buffer.size());
            std::memcpy(header, &buffer[at], sizeof header);
            ASSERT_TRUE(header[0] == 1 || (header[0] >= 1040 && header[0] <= 1069)) << test_seed() << ' ' << round;
            at += header[0] == 1 ? 20 : 8 + size_t{header[1]};
        }
        ASSERT_EQ(at, buffer.size()) << test_seed() << " round " << round;
    }
    EXPECT_GT(accepted, 100);
}

TEST_F(VerifierTest, StrictSettingsRefuseMore)
{
    request(1, KALIX_DMABUF_ALLOC, words({100})); // region 1
    request(2, KALIX_DMABUF_ALLOC, words({100})); // region 2
    const uint32_t driver = _globals.dirty_gmr_id;
    const std::map<uint32_t, std::vector<stream>> refusals{
        {1040, {{}}},
        {1041, {{1}}},
        {1044,
         {{1, 0, 0, 3, 0, 0, 1},
          {2, 0, 0, 1, 0, 0, 1},
          {0, 0, 0, 1, 0, 0, 1},
          {0xFFFFFFFE, 0, 0, 1, 0, 0, 1},
          {invalid, 0, 0, 1, 0, 0, 1},
          {driver, 0, 0, 1, 0, 0, 1},
          {1, 0},
          {driver}}},
        {1045, {{1}}},
        {1046, {{1}}},
        {1066, {{1, 0, 2, 0}, {1, 0, driver, 8}}},
        {1067, {{1, 0}, {1, 0, driver}}},
    };
    for (const auto& [id, bodies] : refusals)
        for (const stream& body : bodies) {
            EXPECT_EQ(check(command(id, body)), 0);
            _globals.settings.strict = true;
            EXPECT_EQ(check(command(id, body)), -22) << id;
            _globals.settings.strict = false;
        }
    _globals.settings.strict = true;
    EXPECT_EQ(check(command(1044, {1, 0, 0, 1, 0, 0, 1})), 0);
    EXPECT_EQ(check(command(1066, {1, 0, 1, 0})), 0);
}

// By default the device gets no region in place of the driver's own, and everything else as it was sent.
TEST_F(VerifierTest, TheDriversRegionIsNobodysToName)
{
    const uint32_t driver = _globals.dirty_gmr_id;
    const stream sent[] = {command(1044, {driver, 0, 0, 1, 0, 0, 2}), command(1044, {driver}),
                           command(1066, {1, 0, driver, 8}), command(1067, {1, 0, driver})};
    stream buffer;
    stream wanted;
    for (stream each : sent) {
        buffer.insert(buffer.end(), each.begin(), each.end());
        each[each[0] == 1044 ? 2 : 4] = invalid;
        wanted.insert(wanted.end(), each.begin(), each.end());
    }
    for (const stream& each : {command(1044, {driver + 1, driver, driver, 1, driver, driver, 2}), command(1044, {}),
                               command(1044, {0xFFFFFFFE, 0}), command(1066, {1, driver})}) {
        buffer.insert(buffer.end(), each.begin(), each.end());
        wanted.insert(wanted.end(), each.begin(), each.end());
    }
    const bytes raw = words(buffer);
    const bytes& object = command_buffer(1, 5, raw);
    EXPECT_EQ(execute(1, 5, static_cast<uint32_t>(raw.size())).sent, wanted);
    EXPECT_TRUE(std::equal(raw.begin(), raw.end(), object.begin())); // the client's own stays
}

// What was accepted in one buffer may be another's in the next.
TEST_F(VerifierTest, EveryBufferLooksItsIdsUpAnew)
{
    const stream shown = command(1058, {2});
    const stream cleared = command(1057, {1});
    EXPECT_EQ(check(shown), 0);
    EXPECT_EQ(destroy_surface(1, 2), 0);
    ASSERT_EQ(define_surface(2, 2), 2);
    EXPECT_EQ(check(shown), -22);
    EXPECT_EQ(check(cleared), 0);
    EXPECT_EQ(request(1, KALIX_CONTEXT_DESTROY, words({1})).value, 0);
    EXPECT_EQ(check(cleared), -22);
}

// ---- Command buffers --------------------------------------------------------------------------------------

TEST_F(VerifierTest, ExecutionCommitsWhatWasVerified)
{
    command_buffer(1, 5, words({1057, 4, 1}));
    const bytes sent = bytes_of(execbuf_req{0xAA00000005, 12, 0, {1, 2, 3, 4}});
    here().fifo[SVGA_FIFO_FENCE] = 77;
    const answer got = request(1, KALIX_EXECBUF, sent);
    EXPECT_EQ(got.value, 0);
    EXPECT_EQ(words_of(got.data), (stream{here().fence, 3, here().fence, 77, 1, 0, 3, 4}));
    EXPECT_EQ(got.sent, (stream{1057, 4, 1}));
    EXPECT_EQ(here().open_objects.size(), 1u);
    const answer fence_alone = execute(1, 5, 0);
    EXPECT_EQ(fence_alone.value, 0);
    EXPECT_TRUE(fence_alone.sent.empty());
    EXPECT_EQ(here().open_objects.size(), 1u); // nothing was opened anew
    command_buffer(1, 5, words({1057, 4, 2}));
    const answer refused_one = request(1, KALIX_EXECBUF, sent);
    EXPECT_EQ(refused_one.value, -22);
    EXPECT_EQ(refused_one.data, sent);
    EXPECT_EQ(refused_one.said.back(), "2 kalix: command validation failed");
    EXPECT_TRUE(refused_one.sent.empty());
    execute(1, 5, 0, 0xFFFFFFFF);
    EXPECT_EQ(here().slept_us, 1000u); // as the settings bound it
}

TEST_F(VerifierTest, ExecutionRefusals)
{
    constexpr char unmapped[] = "2 kalix: could not map to user command buffer";
    expect_refused(execute(1, 5, 8), -22, {unmapped}); // no such object
    command_buffer(1, 5, {});
    for (const uint32_t count : {65537u, 0x800000u})
        expect_refused(execute(1, 5, count), -22, {unmapped});
    for (const uint32_t count : {0x800001u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu})
        expect_refused(execute(1, 5, count), -12, {"2 kalix: fifo reserve failed for execbuf."});
    here().objects["/execbuf_1001_6"].resize(100); // short
    EXPECT_EQ(execute(1, 6, 8).value, -22);
    EXPECT_TRUE(here().open_objects.empty());
}

TEST_F(VerifierTest, CommandBufferNumbersAreKeptApart)
{
    command_buffer(1, 9, {});
    command_buffer(2, 9, {});
    command_buffer(2, 1, {});
    EXPECT_EQ(execute(2, 9, 0).value, 0);
    EXPECT_EQ(execute(1, 9, 0).value, -22); // the first user's
    EXPECT_EQ(execute(2, 1, 0).value, -22); // names a context of client 1
    while (define_context(1) != 9) {
    } // now 9 is client 1's
    EXPECT_THAT(here().unlinked, testing::ElementsAre("/execbuf_1002_9"));
    EXPECT_EQ(execute(2, 9, 0).value, -22);
    EXPECT_EQ(execute(1, 9, 0).value, 0);
    EXPECT_EQ(request(1, KALIX_CONTEXT_DESTROY, words({9})).value, 0);
    EXPECT_THAT(here().unlinked, testing::ElementsAre("/execbuf_1002_9", "/execbuf_1001_9"));
    EXPECT_EQ(execute(1, 9, 0).value, -22); // the object has gone with it
    command_buffer(1, 300, {});
    EXPECT_EQ(execute(1, 300, 0).value, 0);
    replace_object("/execbuf_1001_300");
    disconnect(1);
    EXPECT_EQ(here().unlinked.size(), 2u);
}

} // namespace
} // namespace kalix::test

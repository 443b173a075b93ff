// The verifier: a table of commands, good ones bent in one place, and random buffers before a guard page.

#include "tests/unit/driver/support.h"

#include "driver/objects/verifier.h"

#include <kalix/svga3d_types.h>
#include <sys/mman.h>
#include <unistd.h>

namespace kalix::test {
namespace {

using word_list = std::vector<uint32_t>;

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

    int check(const word_list& list)
    {
        bytes raw(list.size() * 4);
        std::ranges::copy(std::as_bytes(std::span{list}), raw.begin());
        return check(raw);
    }

private:
    size_t page_ = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
    void* map_ = nullptr;
    std::byte* end() const { return static_cast<std::byte*>(map_) + page_; }
};

word_list command(uint32_t id, const word_list& body)
{
    word_list out{id, static_cast<uint32_t>(body.size() * 4)};
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

// Two declarations and a range, all ids held: words 11, 20 and 27 name the arrays.
word_list good_draw()
{
    return command(1063, {1, 2, 1, 1, 0, 0, 0, 1, 0, 16, 0, 0, 1, 0, 5, 0, 2, 0, 16, 0, 0, 1, 1, invalid, 0, 2, 2, 0});
}

std::string refused(uint32_t id)
{
    return "2 kalix: cmd_check: illegal / invalid SVGA3D command: " + std::to_string(static_cast<int>(id));
}

struct verifier_row {
    const char* name;
    word_list stream;
    std::vector<std::string> lines; // none: accepted; addresses are cut off
};

TEST_F(VerifierTest, Table)
{
    const std::string context = "2 kalix: cmd_cid_check: could not find or use context 0x2";
    const std::string surface = "2 kalix: cmd_sid_check: could not find or use surface 0x00000003 address ";
    const std::string sync = "2 kalix: command verifier out of sync.";
    const verifier_row rows[] = {
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
        {"copy cut", command(1042, {1, 0, 0}), {refused(1042)}},
        {"stretch to another's", command(1043, {1, 0, 0, 3, 0, 0}), {surface, refused(1043)}},
        {"present", command(1058, {2}), {}},
        {"present another's", command(1058, {3}), {surface, refused(1058)}},
        {"blit another's", command(1069, {3}), {surface, refused(1069)}},
        {"target", command(1050, {1, 2, 1, 0, 0}), {}},
        {"target of another", command(1050, {1, 2, 3, 0, 0}), {surface, refused(1050)}},
        {"target in another's context", command(1050, {2, 2, 3, 0, 0}), {context, refused(1050)}},
        {"target cut", command(1050, {1, 2}), {refused(1050)}},
        {"texture", command(1051, {1, 0, 1, 2, 0, 2, 3}), {}},
        {"texture of another", command(1051, {1, 0, 2, 3, 0, 1, 3}), {surface, refused(1051)}},
        {"texture state cut", command(1051, {1, 0, 2, 3, 0, 1}), {refused(1051)}},
        {"end query", command(1066, {1, 0, 9, 9}), {}},
        {"wait query", command(1067, {2, 0, 9, 9}), {context, refused(1067)}},
        {"draw", good_draw(), {}},
    };
    for (const verifier_row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(check(row.stream), row.lines.empty() ? 0 : -22);
        std::vector<std::string> lines = take_lines();
        for (std::string& line : lines)
            if (const size_t at = line.find("address "); at != std::string::npos)
                line.resize(at + 8);
        EXPECT_EQ(lines, row.lines);
    }
}

struct bend {
    const char* name;
    void (*apply)(word_list&);
    std::string first_line;
};

TEST_F(VerifierTest, AGoodDrawBentInOnePlace)
{
    const bend bends[] = {
        {"another's context", [](word_list& w) { w[2] = 2; },
         "2 kalix: cmd_cid_check: could not find or use context 0x2"},
        {"one more declaration", [](word_list& w) { ++w[3]; },
         "2 kalix: cmd_draw: illegal number of vertex declarations."},
        {"many declarations", [](word_list& w) { w[3] = 0x71C71C8; }, // 36 times it wraps to a little
         "2 kalix: cmd_draw: illegal number of vertex declarations."},
        {"one more range", [](word_list& w) { ++w[4]; }, "2 kalix: cmd_draw: illegal number of index ranges."},
        {"another's vertices", [](word_list& w) { w[9] = 3; }, "2 kalix: cmd_sid_check"},
        {"another's indices", [](word_list& w) { w[25] = 3; }, "2 kalix: cmd_sid_check"},
        {"cut short", [](word_list& w) { w.pop_back(); }, refused(1063)},
        {"no counts",
         [](word_list& w) {
             w = {1063, 8, 1, 0};
         },
         refused(1063)},
    };
    for (const bend& each : bends) {
        SCOPED_TRACE(each.name);
        word_list stream = good_draw();
        ASSERT_EQ(check(stream), 0);
        each.apply(stream);
        EXPECT_EQ(check(stream), -22);
        const std::vector<std::string> lines = take_lines();
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines.front().substr(0, each.first_line.size()), each.first_line);
        EXPECT_EQ(lines.back(), refused(1063));
    }
}

TEST_F(VerifierTest, CutAtEveryByteItIsRefused)
{
    word_list stream = command(1042, {1, 0, 0, 2, 0, 0});
    const word_list draw = good_draw();
    const word_list update{1, 0, 0, 1, 1};
    stream.insert(stream.end(), update.begin(), update.end());
    stream.insert(stream.end(), draw.begin(), draw.end());
    bytes all(stream.size() * 4);
    std::memcpy(all.data(), stream.data(), all.size());
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
        ASSERT_EQ(check(buffer), verdict) << test_seed() << " round " << round;
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
    const auto dma = [](uint32_t gmr, uint32_t sid) { return command(1044, {gmr, 0, 0, sid, 0, 0, 1}); };
    const word_list refusals[] = {
        command(1040, {}),
        command(1041, {1}),
        command(1045, {1}),
        command(1046, {1}),
        dma(1, 3),
        dma(2, 1),
        dma(0, 1),
        dma(0xFFFFFFFE, 1),
        dma(invalid, 1),
        command(1044, {1, 0}),
        command(1066, {1, 0, 2, 0}),
        command(1067, {1, 0}),
    };
    for (const word_list& stream : refusals) {
        EXPECT_EQ(check(stream), 0);
        _globals.settings.strict = true;
        EXPECT_EQ(check(stream), -22) << stream[0];
        _globals.settings.strict = false;
    }
    _globals.settings.strict = true;
    EXPECT_EQ(check(dma(1, 1)), 0);
    EXPECT_EQ(check(command(1066, {1, 0, 1, 0})), 0);
}

// By default the device gets no region in place of the driver's own, and everything else as it was sent.
TEST_F(VerifierTest, TheDriversRegionIsNobodysToName)
{
    const uint32_t driver = _globals.dirty_gmr_id;
    const word_list sent[] = {command(1044, {driver, 0, 0, 1, 0, 0, 2}), command(1044, {driver}),
                              command(1066, {1, 0, driver, 8}), command(1067, {1, 0, driver})};
    word_list buffer;
    word_list wanted;
    for (word_list each : sent) {
        buffer.insert(buffer.end(), each.begin(), each.end());
        each[each[0] == 1044 ? 2 : 4] = invalid;
        wanted.insert(wanted.end(), each.begin(), each.end());
        _globals.settings.strict = true;
        EXPECT_EQ(check(each), -22);
        _globals.settings.strict = false;
    }
    for (const word_list& each : {command(1044, {driver + 1, driver, driver, 1, driver, driver, 2}), command(1044, {}),
                                  command(1044, {0xFFFFFFFE, 0}), command(1066, {1, driver})}) {
        buffer.insert(buffer.end(), each.begin(), each.end());
        wanted.insert(wanted.end(), each.begin(), each.end());
    }
    bytes raw(buffer.size() * 4);
    std::memcpy(raw.data(), buffer.data(), raw.size());
    const bytes& object = command_buffer(1, 5, raw);
    take_stream();
    EXPECT_EQ(execute(1, 5, static_cast<uint32_t>(raw.size())).value, 0);
    EXPECT_EQ(take_stream(), wanted);
    EXPECT_TRUE(std::equal(raw.begin(), raw.end(), object.begin())); // the client's own stays
}

// What was accepted in one buffer may be another's in the next.
TEST_F(VerifierTest, EveryBufferLooksItsIdsUpAnew)
{
    const word_list shown = command(1058, {2});
    const word_list cleared = command(1057, {1});
    EXPECT_EQ(check(shown), 0);
    EXPECT_EQ(request(1, KALIX_SURFACE_DESTROY, words({2})).value, 0);
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
    take_stream();
    const bytes sent = bytes_of(execbuf_req{0xAA00000005, 12, 0, {1, 2, 3, 4}});
    here().fifo[SVGA_FIFO_FENCE] = 77;
    const answer got = request(1, KALIX_EXECBUF, sent);
    EXPECT_EQ(got.value, 0);
    EXPECT_EQ(words_of(got.data), (word_list{here().fence, 3, here().fence, 77, 1, 0, 3, 4}));
    EXPECT_EQ(take_stream(), (word_list{1057, 4, 1}));
    EXPECT_EQ(here().open_objects.size(), 1u);
    EXPECT_EQ(execute(1, 5, 0).value, 0); // a fence alone, and nothing opened anew
    EXPECT_EQ(here().open_objects.size(), 1u);
    EXPECT_TRUE(take_stream().empty());
    command_buffer(1, 5, words({1057, 4, 2}));
    take_lines();
    const answer refused_one = request(1, KALIX_EXECBUF, sent);
    EXPECT_EQ(refused_one.value, -22);
    EXPECT_EQ(refused_one.data, sent);
    EXPECT_EQ(take_lines().back(), "2 kalix: command validation failed");
    EXPECT_TRUE(take_stream().empty());
    execute(1, 5, 0, 0xFFFFFFFF);
    EXPECT_EQ(here().slept_us, 1000u); // as the settings bound it
}

TEST_F(VerifierTest, ExecutionRefusals)
{
    const std::vector<std::string> unmapped{"2 kalix: could not map to user command buffer"};
    EXPECT_EQ(execute(1, 5, 8).value, -22); // no such object
    EXPECT_EQ(take_lines(), unmapped);
    command_buffer(1, 5, {});
    for (const uint32_t count : {65537u, 0x800000u}) {
        EXPECT_EQ(execute(1, 5, count).value, -22);
        EXPECT_EQ(take_lines(), unmapped);
    }
    for (const uint32_t count : {0x800001u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(execute(1, 5, count).value, -12);
        EXPECT_EQ(take_lines(), std::vector<std::string>{"2 kalix: fifo reserve failed for execbuf."});
    }
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

TEST_F(VerifierTest, ObjectsAreOpenedForTheUserWhoAsks)
{
    command_buffer(9, 300, {}); // client 9 is another user than the server
    EXPECT_EQ(execute(9, 300, 0).value, 0);
    command_buffer(9, 301, {});
    here().owners["/execbuf_1009_301"] = 0;
    EXPECT_EQ(execute(9, 301, 0).value, -22);
    EXPECT_EQ(request(9, KALIX_DMABUF_ALLOC, words({100})).value, 0);
    EXPECT_EQ(here().owners["/svga_dma_1"], 1u);
}

} // namespace
} // namespace kalix::test

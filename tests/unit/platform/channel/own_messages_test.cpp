// The platform's own messages: who a client is, and objects that travel over its connection.
#include "platform/files/descriptors.h"
#include "platform/files/handed_objects.h"
#include "platform/files/sender.h"
#include "platform/files/shared_memory.h"
#include "tests/unit/platform/support.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <kalix/protocol.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kalix::platform {
namespace {

constexpr uint32_t theirs = 4242; // a user other than the server's

struct handed {
    int32_t value = 1; // the status, or the error number below 0
    unique_fd object;
};

// Takes an answer with what comes beside it.
handed receive(raw_client& client)
{
    kalix_reply_frame frame{};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> beside{};
    iovec part{&frame, sizeof frame};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = beside.data();
    message.msg_controllen = beside.size();
    handed got;
    if (recvmsg(client.fd(), &message, MSG_CMSG_CLOEXEC) != ssize_t{sizeof frame})
        return got;
    got.value = frame.kind == KALIX_REPLY_STATUS ? frame.value : -1000 - frame.value;
    int descriptor = -1;
    if (const cmsghdr* const rights = CMSG_FIRSTHDR(&message))
        std::memcpy(&descriptor, CMSG_DATA(rights), sizeof descriptor);
    got.object.reset(descriptor);
    return got;
}

template <typename... records>
bytes message_of(uint32_t message, const records&... each)
{
    const kalix_platform_header header{KALIX_PLATFORM_MAGIC, message};
    bytes all;
    const auto add = [&all](const auto& record) {
        const auto view = std::as_bytes(std::span{&record, 1});
        all.insert(all.end(), view.begin(), view.end());
    };
    add(header);
    (add(each), ...);
    return all;
}

kalix_object_req object_request(const std::string& name, uint32_t size, uint32_t make)
{
    kalix_object_req wanted{};
    std::copy_n(name.begin(), std::min(name.size(), sizeof wanted.name), wanted.name);
    wanted.bytes = size;
    wanted.make = make;
    return wanted;
}

struct stat facts_of(int fd)
{
    struct stat facts {};
    fstat(fd, &facts);
    return facts;
}

size_t open_descriptors()
{
    const std::filesystem::directory_iterator all{"/proc/self/fd"};
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

class OwnMessages : public testing::Test {
protected:
    handed ask(const bytes& message)
    {
        client.send(frame(message));
        EXPECT_TRUE(channel.settle().empty()) << "nobody else hears of it";
        return receive(client);
    }
    handed ask(const std::string& name, uint32_t size, uint32_t make)
    {
        return ask(message_of(KALIX_OBJECT, object_request(name, size, make)));
    }
    static std::string own(const std::string& before, const std::string& behind)
    {
        return before + std::to_string(getpid()) + behind;
    }

    captured_log log;
    own_channel channel;
    raw_client client = channel.connect();
};

TEST_F(OwnMessages, TellWhoTheSenderIs)
{
    client.send(frame(message_of(KALIX_WHO)));
    EXPECT_TRUE(channel.settle().empty());
    const std::optional<reply> got = client.receive();
    const auto self = static_cast<uint32_t>(getpid());
    const kalix_who_rep wanted{self, geteuid(), self, 0};
    const auto view = std::as_bytes(std::span{&wanted, 1});
    EXPECT_EQ(got, (reply{KALIX_REPLY_STATUS, 0, {view.begin(), view.end()}}));
    EXPECT_EQ(ask(message_of(3)).value, -1089);
    EXPECT_EQ(ask(message_of(0)).value, -1089);
    EXPECT_EQ(
        log.count("kalix: process " + std::to_string(self) + " of user " + std::to_string(geteuid()) + " connected"),
        1U);
}

TEST_F(OwnMessages, AnObjectIsMadeOpenedKeptAndForgotten)
{
    const std::string name = own("vm_svga:", ":7");
    const handed made = ask(name, 10'000, 1);
    ASSERT_EQ(made.value, 0);
    const auto inode = facts_of(made.object.get()).st_ino;
    EXPECT_EQ(facts_of(made.object.get()).st_size, 10'000);
    for (const off_t size : {0, 20'000})
        EXPECT_EQ(::ftruncate(made.object.get(), size), -1);
    for (int round = 0; round < 2; ++round) { // what the driver closes keeps its name, as a file would
        const int32_t opened = shm_open(("/" + name).c_str(), open_read_write, 0);
        ASSERT_GE(opened, 0);
        EXPECT_EQ(facts_of(opened).st_ino, inode);
        const handed again = ask(name, 0, 0);
        EXPECT_EQ(facts_of(again.object.get()).st_ino, inode);
        EXPECT_EQ(close(opened), 0);
    }
    const int32_t opened = shm_open(("/" + name).c_str(), open_read_write, 0);
    const handed newer = ask(name, 20'000, 1);
    EXPECT_NE(facts_of(newer.object.get()).st_ino, inode);
    EXPECT_EQ(shm_unlink_open(("/" + name).c_str(), opened), 0); // the newer one stays
    const int32_t second = shm_open(("/" + name).c_str(), open_read_write, 0);
    EXPECT_EQ(facts_of(second).st_size, 20'000);
    EXPECT_EQ(shm_unlink_open(("/" + name).c_str(), opened), 0); // also when it is open
    EXPECT_EQ(ask(name, 0, 0).value, 0);
    EXPECT_EQ(close(opened), 0);
    EXPECT_EQ(facts_of(opened).st_ino, 0U);
    EXPECT_EQ(shm_unlink_open(("/" + name).c_str(), second), 0);
    EXPECT_EQ(close(second), 0);
    EXPECT_EQ(ask(name, 0, 0).value, -ENOENT);
    EXPECT_EQ(shm_open(("/" + name).c_str(), open_read_write, 0), -1);
}

TEST_F(OwnMessages, AreHostile)
{
    struct row {
        std::string name;
        uint32_t size, make;
        int32_t answered;
    };
    const std::string buffer = own("execbuf_", "_1");
    const std::string place = own("vm_svga:", ":1");
    for (const row& each : std::vector<row>{{buffer, 65536, 1, 0},
                                            {own("execbuf_", "_4294967295"), 65536, 1, 0},
                                            {place, 1, 1, 0},
                                            {place, KALIX_OBJECT_BYTES_MAX, 1, 0},
                                            {place, KALIX_OBJECT_BYTES_MAX + 1, 1, -EINVAL},
                                            {place, 0, 1, -EINVAL},
                                            {place, 1, 2, -EINVAL},
                                            {buffer, 65535, 1, -EINVAL},
                                            {buffer, 65537, 1, -EINVAL},
                                            {own("execbuf_", "_4294967296"), 65536, 1, -EINVAL},
                                            {own("execbuf_", "_01"), 65536, 1, -EINVAL},
                                            {own("execbuf_", "_1x"), 65536, 1, -EINVAL},
                                            {own("execbuf_", "_"), 65536, 1, -EINVAL},
                                            {own("execbuf_", "1_1"), 65536, 1, -EINVAL},
                                            {own("/execbuf_", "_1"), 65536, 1, -EINVAL},
                                            {"execbuf_1_1", 65536, 1, -EINVAL},
                                            {"svga_dma_1", 4096, 1, -EINVAL},
                                            {"svga_dma_1", 0, 0, -ENOENT},
                                            {"svga_dma_../../x", 0, 0, -ENOENT},
                                            {"", 0, 0, -ENOENT},
                                            {std::string(64, 'x'), 0, 0, -EINVAL}}) {
        const handed got = ask(each.name, each.size, each.make);
        EXPECT_EQ(got.value, each.answered) << each.name << " " << each.size << " " << each.make;
        EXPECT_EQ(static_cast<bool>(got.object), each.answered == 0) << each.name;
    }
    bytes cut = message_of(KALIX_OBJECT, object_request(buffer, 65536, 1));
    cut.pop_back();
    EXPECT_EQ(ask(cut).value, -EINVAL);
    // A descriptor that nobody receives is one alone, however many are asked for.
    for (int i = 0; i < 2; ++i)
        client.send(frame(message_of(KALIX_OBJECT, object_request(buffer, 65536, 1))));
    channel.settle();
    EXPECT_EQ(receive(client).value, 0);
    EXPECT_EQ(receive(client).value, -ENOMEM);
    EXPECT_EQ(ask(buffer, 65536, 1).value, 0);
}

TEST_F(OwnMessages, TheFileOfTheSendersUserIsHandedOut)
{
    const unique_fd made{shm_open("/svga_dma_3", open_read_write | open_create, 0)};
    const handed got = ask("svga_dma_3", 0, 0);
    EXPECT_EQ(got.value, 0);
    EXPECT_EQ(facts_of(got.object.get()).st_ino, facts_of(made.get()).st_ino);
    put(channel.directory.object(own("execbuf_", "_1")), "x");
    EXPECT_EQ(ask(own("execbuf_", "_1"), 0, 0).value, -ENOENT);
    if (geteuid() != 0)
        return;
    std::filesystem::remove(channel.directory.object("svga_dma_3"));
    put(channel.directory.object("svga_dma_3"), "x");
    ASSERT_EQ(chown(channel.directory.object("svga_dma_3").c_str(), theirs, theirs), 0);
    EXPECT_EQ(ask("svga_dma_3", 0, 0).value, -EACCES);
}

TEST_F(OwnMessages, WhatWaitsGoesWithItsConnection)
{
    EXPECT_EQ(ask(own("execbuf_", "_1"), 65536, 1).value, 0);
    raw_client second = channel.connect();
    channel.settle();
    const size_t before = open_descriptors();
    client.close();
    channel.settle();
    EXPECT_EQ(open_descriptors(), before - 3); // both ends, and the object
    EXPECT_EQ(shm_open(("/" + own("execbuf_", "_1")).c_str(), open_read_write, 0), -1);
    second.close();
}

// The server's own objects for users to whom it can give no file.
TEST(HandedObjects, BelongToOneUser)
{
    const captured_log log;
    const int32_t made = make_object_to_hand("svga_dma_1", theirs);
    ASSERT_GE(made, 0);
    EXPECT_EQ(ftruncate(made, 4096), 0);
    EXPECT_EQ(::ftruncate(made, 8192), -1); // the first size is the last
    const object_owner process{theirs, 77, 1};
    EXPECT_EQ(facts_of(find_handed_object(process, "svga_dma_1").get()).st_ino, facts_of(made).st_ino);
    EXPECT_FALSE(find_handed_object({theirs + 1, 77, 1}, "svga_dma_1"));
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(open_handed_object("svga_dma_1", theirs + 1), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_TRUE(make_handed_object(process, "execbuf_77_1", 65536));
    EXPECT_FALSE(find_handed_object({theirs, 78, 1}, "execbuf_77_1")); // another process of the user
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(close(made), 0);
    EXPECT_FALSE(find_handed_object(process, "svga_dma_1"));
    EXPECT_EQ(errno, ENOENT);
    const size_t before = open_descriptors();
    forget_handed_of_process(78);
    EXPECT_EQ(open_descriptors(), before);
    forget_handed_of_process(77);
    EXPECT_EQ(open_descriptors(), before - 1);
}

TEST(HandedObjects, ThatWaitAreBounded)
{
    const captured_log log;
    const auto fill = [](uint32_t user, uint32_t connection, uint64_t bytes) {
        size_t made = 0;
        while (
            make_handed_object({user, 1, connection}, std::to_string(connection) + "_" + std::to_string(made), bytes))
            ++made;
        EXPECT_EQ(errno, ENOMEM);
        return made;
    };
    const size_t all = divide_descriptors().handed;
    EXPECT_EQ(fill(theirs, 1, 1), all / 4);
    const int32_t opened = open_handed_object("1_0", theirs);
    EXPECT_EQ(fill(theirs, 2, 1), 1U);             // what is open is the driver's share
    EXPECT_FALSE(take_back_handed_object(opened)); // no room to wait in: its holder closes it
    ::close(opened);
    EXPECT_EQ(fill(theirs + 1, 3, uint64_t{64} << 20), std::min<size_t>(4, all / 4)); // sparse: nobody writes
    forget_handed_of_connection(3);
    EXPECT_EQ(fill(geteuid(), 4, 1), all - all / 4);
    EXPECT_EQ(log.count("refused: too many objects of this user wait to be opened"), 2U);
    EXPECT_EQ(log.count("refused: no more than 268435456 bytes of one user wait to be opened"), 1U);
    EXPECT_EQ(log.count("refused: too many objects wait to be opened"), 1U);
    forget_handed_objects();
}

} // namespace
} // namespace kalix::platform

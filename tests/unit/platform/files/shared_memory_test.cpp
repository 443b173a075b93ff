// Shared memory: whose object may be opened, what is replaced, and what a spoiled mapping does.
#include "platform/files/descriptors.h"
#include "platform/files/memory_guard.h"
#include "platform/files/run_directory.h"
#include "platform/files/sender.h"
#include "platform/files/shared_memory.h"
#include "tests/unit/platform/support.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace kalix::platform {
namespace {

constexpr uint32_t nobody = 65534;

TEST(SharedMemory, NamesAreBounded)
{
    own_channel channel;
    const std::string longest = "/" + std::string(62, 'n');
    for (const auto& [name, good] : std::vector<std::pair<std::string, bool>>{{"/execbuf_1_5", true},
                                                                              {"/vm_svga:1:2", true},
                                                                              {longest, true},
                                                                              {longest + "n", false},
                                                                              {"", false},
                                                                              {"/", false},
                                                                              {"name", false},
                                                                              {"/a/b", false},
                                                                              {"//a", false},
                                                                              {"/..", false},
                                                                              {"/.", false},
                                                                              {"/a..b", false}}) {
        SCOPED_TRACE(name);
        const int32_t made = shm_open(name.c_str(), open_read_write | open_create, 0777);
        EXPECT_EQ(made >= 0, good);
        errno = 0;
        EXPECT_EQ(shm_unlink(name.c_str()), good ? 0 : -1);
        EXPECT_EQ(errno, good ? 0 : EINVAL);
        EXPECT_EQ(close(made), good ? 0 : -1);
    }
    EXPECT_EQ(shm_open("/never_made", open_read_write, 0), -1);
    EXPECT_EQ(errno, ENOENT);
}

// A worker that is still at it while the process ends leaves nothing.
TEST(SharedMemory, NothingIsMadeAfterTheEndHasCleaned)
{
    own_channel channel;
    EXPECT_EQ(run_child([] {
                  clean_run_directory();
                  return shm_open("/late", open_read_write | open_create, 0777) == -1 && errno == ENOENT ? 0 : 1;
              }),
              0);
    EXPECT_FALSE(std::filesystem::exists(channel.directory.object("late")));
}

struct planted {
    const char* what;
    void (*plant)(const std::string& path);
    int open_error; // of opening it as a client's object; 0: it opens
    bool root_only = false;
};

const std::vector<planted> plants{
    {"a file", [](const std::string& p) { put(p, "old"); }, 0},
    {"a link", [](const std::string& p) { put(p + "_", "old"), std::filesystem::create_symlink(p + "_", p); }, ELOOP},
    {"a second name", [](const std::string& p) { put(p + "_", "old"), std::filesystem::create_hard_link(p + "_", p); },
     EACCES},
    {"a directory", [](const std::string& p) { std::filesystem::create_directory(p); }, EISDIR},
    {"a full directory", [](const std::string& p) { std::filesystem::create_directories(p + "/a/b"); }, EISDIR},
    {"a pipe", [](const std::string& p) { mkfifo(p.c_str(), 0600); }, EACCES},
    {"another user's", [](const std::string& p) { put(p, "old"), (void)!chown(p.c_str(), nobody, nobody); }, EACCES,
     true},
};

TEST(SharedMemory, OpensOnlyTheSendersOwnAndReplacesWhatIsThere)
{
    for (const planted& each : plants) {
        if (each.root_only && geteuid() != 0)
            continue;
        SCOPED_TRACE(each.what);
        const own_channel channel;
        const std::string path = channel.directory.object("object");
        each.plant(path);
        const int32_t opened = shm_open("/object", open_read_write, 0777);
        EXPECT_EQ(opened < 0 ? errno : 0, each.open_error);
        close(opened);
        const int32_t made = shm_open("/object", open_read_write | open_create, 0777);
        ASSERT_GE(made, 0);
        struct stat facts {};
        ASSERT_EQ(lstat(path.c_str(), &facts), 0);
        EXPECT_TRUE(S_ISREG(facts.st_mode) && facts.st_size == 0 && (facts.st_mode & 0777) == 0600);
        EXPECT_EQ(facts.st_uid, geteuid());
        EXPECT_EQ(contents(path + "_"), std::filesystem::exists(path + "_") ? "old" : "");
        close(made);
    }
}

TEST(SharedMemory, ObjectsBelongToTheSenderServed)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can serve two users";
    own_channel channel;
    const std::string path = channel.directory.object("theirs");
    {
        const sender_scope scope{nobody};
        close(shm_open("/theirs", open_read_write | open_create, 0777));
        struct stat facts {};
        ASSERT_EQ(stat(path.c_str(), &facts), 0);
        EXPECT_TRUE(facts.st_uid == nobody && (facts.st_mode & 07777) == 0600);
        {
            const sender_scope inner{0};
            EXPECT_EQ(shm_open("/theirs", open_read_write, 0), -1);
            EXPECT_EQ(errno, EACCES);
        }
        EXPECT_EQ(close(shm_open("/theirs", open_read_write, 0)), 0);
    }
    EXPECT_EQ(shm_open("/theirs", open_read_write, 0), -1); // no sender: the server's own user
    const auto open_as = [&](uid_t user) {
        return run_child([&] { return setuid(user) == 0 && ::open(path.c_str(), O_RDWR) >= 0 ? 0 : 1; });
    };
    EXPECT_EQ(open_as(nobody), 0);
    EXPECT_EQ(open_as(1234), 1);
    struct stat objects {};
    stat(channel.directory.object("").c_str(), &objects);
    EXPECT_EQ(objects.st_mode & 07777, 01777U);
}

TEST(SharedMemory, OnlyTheNameOfTheOpenObjectIsRemoved)
{
    own_channel channel;
    const std::string path = channel.directory.object("object");
    const std::string newer = channel.directory.object("newer");
    for (int round = 0; round < 400; ++round) {
        const unique_fd mine{shm_open("/object", open_read_write | open_create, 0)};
        EXPECT_EQ(round % 4 ? 0 : shm_unlink_open("/object", mine.get()), 0);
        EXPECT_EQ(std::filesystem::exists(path), round % 4 != 0);
        put(newer, "theirs");
        std::thread client{[&] { std::filesystem::rename(newer, path); }}; // at any moment of the removal
        EXPECT_EQ(shm_unlink_open("/object", mine.get()), 0);
        client.join();
        ASSERT_EQ(contents(path), "theirs") << round;
        EXPECT_EQ(shm_unlink_open("/object", mine.get()), 0);
        ASSERT_EQ(contents(path), "theirs") << round;
    }
    const std::filesystem::directory_iterator all{channel.directory.object("")};
    EXPECT_EQ(std::distance(begin(all), end(all)), 1);
}

TEST(SharedMemory, ObjectsAndConnectionsDivideTheDescriptors)
{
    struct division {
        rlim_t limit;
        size_t connections, handed, objects;
    };
    for (const division& row : {division{32, 0, 0, 0}, {1024, 480, 60, 420}, {4096, 1024, 376, 2632}})
        EXPECT_EQ(run_child([&] {
                      const rlimit limit{row.limit, row.limit};
                      setrlimit(RLIMIT_NOFILE, &limit);
                      const descriptor_shares got = divide_descriptors();
                      return got.connections == row.connections && got.handed == row.handed &&
                                     objects_max() == row.objects
                                 ? 0
                                 : 1;
                  }),
                  0)
            << row.limit;
}

TEST(SharedMemory, TheLastConnectionOfAProcessTakesItsObjectsAlong)
{
    own_channel channel;
    const std::string pid = std::to_string(getpid());
    const std::vector<std::string> theirs{"execbuf_" + pid + "_1", "execbuf_" + pid + "_4294967295",
                                          "vm_svga:" + pid + ":7"};
    const std::vector<std::string> others{"execbuf_" + pid + "9_1", "execbuf_1_" + pid, "svga_dma_1",
                                          "vm_svga:1:" + pid, "execbuf_" + pid};
    for (const auto* list : {&theirs, &others})
        for (const std::string& name : *list)
            put(channel.directory.object(name), "x");
    const auto there = [&](const std::string& name) { return std::filesystem::exists(channel.directory.object(name)); };
    raw_client first = channel.connect();
    raw_client second = channel.connect();
    channel.settle();
    first.close();
    EXPECT_EQ(channel.settle().size(), 1U);
    EXPECT_TRUE(std::ranges::all_of(theirs, there));
    second.close();
    raw_client in_time = channel.connect(); // waits to be accepted when the other ends
    EXPECT_EQ(channel.settle().size(), 1U);
    EXPECT_TRUE(std::ranges::all_of(theirs, there));
    in_time.close();
    EXPECT_EQ(channel.settle().size(), 1U);
    EXPECT_TRUE(std::ranges::none_of(theirs, there));
    EXPECT_TRUE(std::ranges::all_of(others, there));
}

struct object {
    explicit object(size_t pages) : fd{shm_open("/guarded", open_read_write | open_create, 0)}
    {
        EXPECT_EQ(ftruncate(fd.get(), static_cast<int64_t>(pages * getpagesize())), 0);
    }
    unique_fd fd;
};

TEST(Guard, AShrunkObjectReadsZerosAndDropsWrites)
{
    own_channel channel;
    const size_t page = getpagesize();
    const object shared{4};
    EXPECT_EQ(mmap(4 * page + 1, protect_read, shared.fd.get()), nullptr);
    EXPECT_EQ(errno, ENXIO);
    auto* writable = static_cast<unsigned char*>(mmap(4 * page, protect_read | protect_write, shared.fd.get()));
    const auto* readable = static_cast<const unsigned char*>(mmap(4 * page, protect_read, shared.fd.get()));
    ASSERT_TRUE(writable != nullptr && readable != nullptr);
    EXPECT_EQ(guarded_mappings(), 2U);
    std::fill_n(writable, 4 * page, static_cast<unsigned char>(0x5A));
    ASSERT_EQ(::ftruncate(shared.fd.get(), static_cast<off_t>(page)), 0);
    {
        std::vector<std::jthread> readers;
        for (int i = 0; i < 4; ++i)
            readers.emplace_back([&] {
                EXPECT_EQ(std::count(readable, readable + 4 * page, 0x5A), static_cast<std::ptrdiff_t>(page));
                EXPECT_EQ(std::count(readable, readable + 4 * page, 0), static_cast<std::ptrdiff_t>(3 * page));
            });
    }
    writable[2 * page] = 1; // goes nowhere
    writable[0] = 2;        // still shared
    ASSERT_EQ(::ftruncate(shared.fd.get(), static_cast<off_t>(4 * page)), 0);
    unsigned char seen = 9;
    EXPECT_TRUE(pread(shared.fd.get(), &seen, 1, static_cast<off_t>(2 * page)) == 1 && seen == 0);
    EXPECT_EQ(readable[0], 2);
    EXPECT_EQ(munmap(writable, 3 * page), -1);
    EXPECT_EQ(munmap(writable, 4 * page), 0);
    EXPECT_EQ(munmap(writable, 4 * page), -1);
    EXPECT_EQ(munmap(const_cast<unsigned char*>(readable), 4 * page), 0);
    EXPECT_EQ(guarded_mappings(), 0U);
}

size_t host_mappings()
{
    return static_cast<size_t>(std::ranges::count(contents("/proc/self/maps"), '\n'));
}

TEST(Guard, SpoiltPagesCannotUseUpTheHostsMappings)
{
    own_channel channel;
    const size_t page = getpagesize();
    constexpr size_t pages = 4 * single_pages_max;
    const object shared{pages};
    const auto* mapped = static_cast<const volatile unsigned char*>(mmap(pages * page, protect_read, shared.fd.get()));
    ASSERT_NE(mapped, nullptr);
    ASSERT_EQ(::ftruncate(shared.fd.get(), 0), 0);
    const size_t before = host_mappings();
    for (size_t i = 0; i < pages; i += 2)
        ASSERT_EQ(mapped[i * page], 0);
    EXPECT_LE(host_mappings(), before + 2 * single_pages_max + 2);
    EXPECT_EQ(munmap(const_cast<unsigned char*>(mapped), pages * page), 0);
}

TEST(Guard, OtherFaultsStillEndTheProcess)
{
    own_channel channel;
    const size_t page = getpagesize();
    const object shared{2};
    auto* guarded = static_cast<volatile unsigned char*>(mmap(2 * page, protect_read, shared.fd.get()));
    auto* bare =
        static_cast<volatile unsigned char*>(::mmap(nullptr, 2 * page, PROT_READ, MAP_SHARED, shared.fd.get(), 0));
    ASSERT_EQ(::ftruncate(shared.fd.get(), 0), 0);
    EXPECT_EQ(guarded[page], 0);
    const auto dies = [](const std::function<void()>& fault) {
        return run_child([&] {
            ::close(STDERR_FILENO); // a sanitizer's report is not ours
            fault();
            return 0;
        });
    };
    EXPECT_NE(dies([&] { bare[page] = bare[page]; }), 0);
    EXPECT_NE(dies([&] { guarded[0] = 1; }), 0) << "a write that the mapping forbids";
    EXPECT_NE(dies([] { raise(SIGSEGV); }), 0);
    EXPECT_EQ(guard_mapping(const_cast<unsigned char*>(bare), 2 * page, protect_read), 0);
    EXPECT_EQ(bare[page], 0);
    EXPECT_EQ(unguard_mapping(const_cast<unsigned char*>(bare), 2 * page), 0);
    ::munmap(const_cast<unsigned char*>(bare), 2 * page);
    EXPECT_EQ(munmap(const_cast<unsigned char*>(guarded), 2 * page), 0);
}

TEST(Guard, TheTableIsBoundedAndUsedAgain)
{
    char any = 0;
    std::vector<char*> added;
    for (char* fake = &any; guard_add(fake, 1, PROT_READ); fake += 1)
        added.push_back(fake);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(added.size(), guarded_mappings_max);
    for (char* each : added) { // in the entry that it had, and in no other
        EXPECT_TRUE(guard_remove(each, 1));
        EXPECT_TRUE(guard_add(each, 1, PROT_READ));
    }
    EXPECT_FALSE(guard_remove(added.back() + 1, 1)); // all are looked at, and nothing beyond
    for (char* each : added)
        EXPECT_TRUE(guard_remove(each, 1));
    EXPECT_EQ(guard_count(), 0U);
}

} // namespace
} // namespace kalix::platform

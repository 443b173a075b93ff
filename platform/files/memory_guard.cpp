#include "platform/files/memory_guard.h"

#include "base/lock.h"
#include "platform/log/log.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kalix::platform {
namespace {

struct watched {
    std::atomic<uintptr_t> begin{0}; // 0: free; written last, cleared first
    std::atomic<size_t> bytes{0};
    std::atomic<int> protection{0};
};
static_assert(std::atomic<uintptr_t>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

// All zero until used, so that the unused part takes no memory.
constinit std::array<watched, guarded_mappings_max> table{};
constinit std::atomic<size_t> table_used{0}; // entries that were ever in use
constinit std::atomic<int> single_pages_left{static_cast<int>(single_pages_max)};
// What was there before us, from the one installation on.
struct sigaction action_before_bus;
struct sigaction action_before_segv;

struct guard_books {
    mutex lock;
    size_t count KALIX_GUARDED_BY(lock) = 0;
    bool installed KALIX_GUARDED_BY(lock) = false;
};
guard_books books;

struct span_of_pages {
    uintptr_t begin = 0;
    size_t bytes = 0;
    int protection = 0;
};

// The mapping around an address; empty when none is registered. An entry that changes while it is read
// is not the one: a mapping in use is not removed.
span_of_pages find_around(uintptr_t address)
{
    const size_t used = table_used.load(std::memory_order_acquire);
    for (size_t i = 0; i < used; ++i) {
        const watched& entry = table[i];
        const uintptr_t begin = entry.begin.load(std::memory_order_acquire);
        const span_of_pages found{begin, entry.bytes.load(std::memory_order_acquire),
                                  entry.protection.load(std::memory_order_acquire)};
        if (begin != 0 && address >= begin && address - begin < found.bytes &&
            entry.begin.load(std::memory_order_acquire) == begin)
            return found;
    }
    return {};
}

// By system call, since a sanitizer's own mmap is not made for signal handlers.
bool put_zero_pages(uintptr_t address, size_t bytes, int protection)
{
    return syscall(SYS_mmap, address, bytes, protection, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) ==
           static_cast<long>(address);
}

bool replace_page(uintptr_t address)
{
    const span_of_pages mapping = find_around(address);
    if (mapping.bytes == 0)
        return false;
    const size_t page_bytes = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const uintptr_t page = address - address % page_bytes;
    if (single_pages_left.fetch_sub(1) > 0)
        return put_zero_pages(page, page_bytes, mapping.protection);
    single_pages_left = 0; // so that no number of faults counts it round to positive again
    return put_zero_pages(page, mapping.begin + mapping.bytes - page, mapping.protection);
}

// Hands a signal that is not ours to the action that was there before.
void pass_on(int signal, siginfo_t* facts, void* context)
{
    struct sigaction& before = signal == SIGBUS ? action_before_bus : action_before_segv;
    if ((before.sa_flags & SA_SIGINFO) != 0)
        return before.sa_sigaction(signal, facts, context);
    if (before.sa_handler != SIG_DFL && before.sa_handler != SIG_IGN)
        return before.sa_handler(signal);
    // The faulting instruction runs again and meets the default action; a signal that was sent does not.
    std::signal(signal, SIG_DFL);
    if (facts->si_code <= 0)
        raise(signal);
}

// On the faulting thread, whatever locks that holds: only the table's atomics are read, and nothing is logged. Two
// threads that fault in one page both replace it, and the later page is of zeros like the first.
void on_fault(int signal, siginfo_t* facts, void* context)
{
    const int kept = errno;
    const bool is_fault = facts->si_code > 0; // the kernel's, not one that somebody sent
    // A write where only reading is allowed is an error of ours; a page with the same rights would fault without end.
    const bool is_forbidden = signal == SIGSEGV && facts->si_code == SEGV_ACCERR;
    const bool replaced = is_fault && !is_forbidden && replace_page(reinterpret_cast<uintptr_t>(facts->si_addr));
    errno = kept;
    if (!replaced)
        pass_on(signal, facts, context);
}

// With the first mapping, not at the start of the process: what installs handlers of its own before that, as
// sanitizers do, is then found and passed on to.
bool install() KALIX_REQUIRES(books.lock)
{
    struct sigaction action {};
    action.sa_sigaction = on_fault;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    books.installed =
        sigaction(SIGBUS, &action, &action_before_bus) == 0 && sigaction(SIGSEGV, &action, &action_before_segv) == 0;
    if (!books.installed)
        slogf(log_code, log_error, "kalix: cannot guard shared memory: %s (%d)", std::strerror(errno), errno);
    return books.installed;
}

// Holes before the unused part, so that the handler's walk stays short; without a hole nothing is searched.
watched* free_entry() KALIX_REQUIRES(books.lock)
{
    const size_t used = table_used;
    for (size_t i = 0; books.count < used && i < used; ++i) {
        if (table[i].begin == 0)
            return &table[i];
    }
    return used < table.size() ? &table[used] : nullptr;
}

} // namespace

bool guard_add(void* address, size_t bytes, int protection)
{
    const hold held{books.lock};
    if (!books.installed && !install())
        return false;
    watched* entry = free_entry();
    if (entry == nullptr) {
        errno = ENOMEM;
        return false;
    }
    // The beginning last: a handler that finds it finds the rest as well.
    entry->bytes = bytes;
    entry->protection = protection;
    entry->begin.store(reinterpret_cast<uintptr_t>(address), std::memory_order_release);
    if (entry == table.data() + table_used)
        table_used.fetch_add(1, std::memory_order_release);
    ++books.count;
    return true;
}

bool guard_remove(void* address, size_t bytes)
{
    const hold held{books.lock};
    const auto begin = reinterpret_cast<uintptr_t>(address);
    const size_t used = table_used;
    for (size_t i = 0; begin != 0 && i < used; ++i) {
        watched& entry = table[i];
        if (entry.begin != begin || entry.bytes != bytes)
            continue;
        entry.begin = 0;
        --books.count;
        return true;
    }
    return false;
}

size_t guard_count()
{
    const hold held{books.lock};
    return books.count;
}

} // namespace kalix::platform

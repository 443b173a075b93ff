// The process: background start, its end, threads and their names, sleeping, loading of libraries.
//
// Names and flag words are the platform's own; what the host has no use for is accepted and ignored. Order matters at
// the start: process_begin, procmgr_daemon, process_watch_signals, and only then threads. Everything else may be
// called on any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kalix::platform {

inline constexpr unsigned daemon_keep_directory = 1; // flags of procmgr_daemon
inline constexpr unsigned daemon_keep_descriptors = 2;
inline constexpr unsigned daemon_keep_streams = 4;

// Goes on in the background (fork, new session; the parent exits with status). Stays in the foreground
// with KALIX_FOREGROUND=1 or under a service manager (NOTIFY_SOCKET, or a socket passed). Call before any thread exists.
// Returns 0, or -1 with errno.
int procmgr_daemon(int status, unsigned flags);

inline constexpr int thread_control_io = 1; // ask for I/O privilege
// Answered with success: the software device needs no privilege.
int ThreadCtl(int command, void* data);

// Reads the platform's environment once (KALIX_LOG, KALIX_READY_FD, ...), raises the descriptor limit to
// what the host allows, and turns SIGTERM and SIGINT into an orderly end: farewell is called, then socket
// and shared objects are removed and the process exits with status 0. Until process_watch_signals these
// signals are heeded whenever the calling thread sleeps. SIGPIPE is ignored. Call before any thread exists.
void process_begin(void (*farewell)());
// From here on a thread of their own waits for these signals and ends the process at once, whatever the
// other threads wait for. Call behind procmgr_daemon: a forked child has no threads.
void process_watch_signals();
// Ends the process at once with the status: removes socket and shared objects, runs no destructors.
[[noreturn]] void process_exit(int status);

// The user that this process runs as, and its id.
uint32_t own_user();
uint32_t own_process();

using thread_id = uint64_t; // 0 names no thread
// Starts a thread that lives as long as the process. Returns 0 or an error number.
int pthread_create(thread_id* thread, void* (*entry)(void*), void* argument);
// Names it. The whole name is kept; the host's, of 15 bytes, is shortened so that the end stays.
int pthread_setname_np(thread_id thread, const char* name);
// The whole name that a thread was given; empty for an unknown one.
std::string thread_name(thread_id thread);

// A counting semaphore of this process.
class semaphore {
public:
    semaphore();
    ~semaphore();
    semaphore(const semaphore&) = delete;
    semaphore& operator=(const semaphore&) = delete;
    void post();
    void wait();

private:
    alignas(8) std::byte state_[32]; // the host's, in place: making one needs no memory
};

// Suspends the calling thread; 0 returns at once, without a system call. Before process_watch_signals it may
// end the process (process_begin).
void sleep_us(uint64_t microseconds);

inline constexpr int load_lazy = 1;
void* dlopen(const char* path, int mode);
const char* dlerror();
int dlclose(void* handle);

} // namespace kalix::platform

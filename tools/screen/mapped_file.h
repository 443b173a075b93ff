// A file of a server's run directory, mapped read-only and snapshot by its sequence counter.
//
// Such a file never shrinks, so a mapping stays good; it may grow. The screen file is the next server's as well, the
// status file is that of one server (server_state.h).
#pragma once

#include "base/unique_fd.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace kalix::tools {

class mapped_file {
public:
    // Maps the whole file. Throws std::system_error ("open .../screen", ...) when it is missing, unreadable or
    // shorter than least bytes.
    mapped_file(const std::string& path, size_t least);
    ~mapped_file();
    mapped_file(const mapped_file&) = delete;
    mapped_file& operator=(const mapped_file&) = delete;

    std::span<const std::byte> bytes() const { return bytes_; }
    int descriptor() const { return file_.get(); } // for questions about the open file
    // Maps what the file has grown by since.
    void remap();

private:
    void unmap();

    std::string path_;
    unique_fd file_;
    std::span<const std::byte> bytes_;
};

// Yields, and sleeps once yielding has not helped.
void wait_a_little(int attempt);

// Copies by calling copy() between two looks at the sequence, until both are the same and even. False when
// the writer was in the way every time: then nothing that was copied is to be used.
template <typename function>
bool snapshot(const uint32_t& sequence, function copy)
{
    constexpr int attempts = 1000;
    const std::atomic_ref<uint32_t> counter{const_cast<uint32_t&>(sequence)}; // loads alone
    for (int i = 0; i < attempts; ++i) {
        const uint32_t before = counter.load(std::memory_order_acquire);
        if (before % 2 == 0) {
            copy();
            std::atomic_thread_fence(std::memory_order_acquire);
            if (counter.load(std::memory_order_relaxed) == before)
                return true;
        }
        wait_a_little(i);
    }
    return false;
}

} // namespace kalix::tools

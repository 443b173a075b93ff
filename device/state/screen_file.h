// The memory behind the screen: the file "screen" of the run directory, or anonymous memory.
//
// Owns the mapping and the lock on the file. The file is one for all servers that use a run directory one
// after the other: its inode is reused and it never shrinks, so that viewers stay attached. While another
// device holds the lock, or when the file cannot be had, the memory has no name and nothing is harmed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <kalix/screen.h>
#include <span>

namespace kalix::device {

using log_function = void (*)(int severity, const char* text);

class screen_file {
public:
    // Maps a header and so many bytes of framebuffer, zeroed as far as a reader can tell. A file that cannot be
    // had costs one warning line; memory that cannot be had leaves the object empty.
    screen_file(uint64_t framebuffer_bytes, log_function log);
    ~screen_file();
    screen_file(const screen_file&) = delete;
    screen_file& operator=(const screen_file&) = delete;

    explicit operator bool() const { return !memory_.empty(); }
    bool named() const { return descriptor_ >= 0; }
    kalix_screen& header() const { return *reinterpret_cast<kalix_screen*>(memory_.data()); }
    std::span<std::byte> framebuffer() const;

private:
    int descriptor_ = -1; // holds the lock as long as it is open; -1: no file
    std::span<std::byte> memory_;
};

} // namespace kalix::device

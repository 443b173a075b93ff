// Where log lines go: the system log, standard error or a file. Nothing here waits for whoever reads it.
//
// A line that its target does not take at once (a pipe or socket whose reader stalls, a full disk) is kept
// whole and in order in a backlog of fixed size, and tried again with the next line and by the logger's
// timer. What finds no room there, or cannot be written at all, is counted, and the count is one line as
// soon as lines go again. The room's end is kept back for lines that announce the end of the process.
//
// What standard error refers to is shared with other processes, so it is never made non-blocking: pipes and
// terminals are opened a second time, sockets are sent to without waiting, and where neither can be had the
// descriptor is asked before each line. Not locked: the logger's lock guards it. No allocation.
#pragma once

#include "base/unique_fd.h"

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace kalix::platform {

inline constexpr size_t log_line_max = 2048; // bytes with time and newline; a pipe takes as many whole or not at all
inline constexpr size_t log_backlog_bytes = size_t{64} * 1024;
inline constexpr size_t log_backlog_kept_back = 2 * log_line_max;
inline constexpr int64_t log_retry_ms = 100;

enum class line_class { ordinary, last_words };

class log_sink {
public:
    // Opens what KALIX_LOG names; a file that cannot be opened is one warning line. What waits for the
    // target before is counted as lost when that does not take it now.
    void open();
    bool is_open() const { return target_ != target::unopened; }

    // Writes one line of text, which carries no newline, with the time of now.
    void write(int severity, std::string_view text, line_class what = line_class::ordinary);

    // Whether lines wait; catch_up tries them again.
    bool waits() const { return used_ != 0; }
    void catch_up();

    // Tries for at most so long to have nothing wait: the process ends.
    void finish(int milliseconds);

    // The descriptor that open holds for a file or standard error, -1 for none.
    int descriptor() const { return own_.get(); }

private:
    enum class target { unopened, system_log, stream, socket };
    enum class outcome { taken, later, failed };
    using line_room = std::array<char, log_line_max>;

    void use_standard_error();
    std::string_view render(line_room& room, int severity, std::string_view text) const;
    outcome deliver(std::string_view line, size_t& taken);
    outcome deliver_to_system(std::string_view line);
    bool put(std::string_view line, line_class what);
    bool keep(std::string_view line, line_class what);
    void tell_lost();

    target target_ = target::unopened;
    unique_fd own_;       // opened by us: the file, standard error's second opening, the system log's socket
    int fd_ = -1;         // what is written to
    bool may_block_ = false; // fd_ is asked first
    std::array<char, log_backlog_bytes> backlog_; // records of a length in two bytes and as many of a line
    size_t used_ = 0;
    uint32_t lost_ = 0; // lines; not yet told
};

// The system log's socket, /dev/log unless a test has one of its own. Takes effect with the next open.
void set_system_log_socket(const char* path);

} // namespace kalix::platform

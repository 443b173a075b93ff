// The tools as a user meets them: what a command line prints and exits with, and programs in the background.
#pragma once

#include "tests/system/server.h"

#include <csignal>
#include <cstdio>
#include <string>
#include <sys/wait.h>
#include <utility>
#include <vector>

namespace kalix::test {

struct outcome {
    int status = -1;
    std::string text; // standard output and standard error
};

// A line of the shell, waited for.
inline outcome run(const std::string& command)
{
    outcome out;
    std::FILE* const pipe = ::popen((command + " 2>&1").c_str(), "r");
    char part[4096];
    while (const size_t count = std::fread(part, 1, sizeof part, pipe))
        out.text.append(part, count);
    const int ended = ::pclose(pipe);
    out.status = WIFEXITED(ended) ? WEXITSTATUS(ended) : -1;
    return out;
}

// A program in the background, ended with this.
class background {
public:
    explicit background(const std::vector<std::string>& words) : pid_{start_child([&] { return become(words); })} {}
    ~background() { end(); }
    background(const background&) = delete;
    background& operator=(const background&) = delete;

    pid_t pid() const { return pid_; }
    // Asks it to end; its exit status, or -1.
    int end(int signal = SIGTERM)
    {
        if (pid_ <= 0)
            return -1;
        ::kill(pid_, signal);
        return end_of(std::exchange(pid_, -1));
    }
    // Waits until it ends by itself; likewise.
    int wait() { return end_of(std::exchange(pid_, -1)); }

private:
    pid_t pid_;
};

} // namespace kalix::test

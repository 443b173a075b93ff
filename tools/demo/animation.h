// What an animated scene shares with the program: when to go on, and how fast it goes.
#pragma once

#include <chrono>
#include <cstdint>

namespace kalix::demo {

struct animation_options {
    uint32_t width = 1024, height = 768;
    uint64_t frames = 0;             // 0: until it is interrupted
    std::chrono::seconds patience{}; // with a server that has gone, until another comes; 0: none
};

// INT and TERM end an animation between two frames; call before the first.
void catch_interrupts();
bool interrupted();

// Counts frames and tells the rate on standard error: once a second on a terminal, and at the end.
class progress {
public:
    explicit progress(const animation_options& options) : wanted_{options.frames} {}
    ~progress();
    progress(const progress&) = delete;
    progress& operator=(const progress&) = delete;

    uint64_t frame() const { return done_; }
    // Whether another frame is to be drawn.
    bool goes_on() const { return !interrupted() && (wanted_ == 0 || done_ < wanted_); }
    void count();

private:
    using clock = std::chrono::steady_clock;
    uint64_t wanted_;
    uint64_t done_ = 0;
    clock::time_point start_ = clock::now();
    uint64_t told_ = 0; // frames when the rate was told last
    clock::time_point told_at_ = start_;
};

} // namespace kalix::demo

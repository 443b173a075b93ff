// The end of an animation by ctrl-C is an orderly one: the frame at hand is finished, objects are given back, and the
// rate is told. A handler does no more than leave a mark.

#include "tools/demo/animation.h"

#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace kalix::demo {
namespace {

volatile std::sig_atomic_t signalled;

double seconds(std::chrono::steady_clock::duration time)
{
    return std::chrono::duration<double>(time).count();
}

} // namespace

void catch_interrupts()
{
    struct sigaction action {};
    action.sa_handler = [](int) { signalled = 1; };
    for (const int signal : {SIGINT, SIGTERM})
        sigaction(signal, &action, nullptr);
}

bool interrupted()
{
    return signalled != 0;
}

progress::~progress()
{
    const double passed = seconds(clock::now() - start_);
    if (done_ != 0 && passed > 0)
        std::fprintf(stderr, "kalix-demo: %llu frames in %.1f s, %.1f a second\n",
                     static_cast<unsigned long long>(done_), passed, static_cast<double>(done_) / passed);
}

void progress::count()
{
    ++done_;
    const clock::time_point now = clock::now();
    const double passed = seconds(now - told_at_);
    if (passed < 1 || !isatty(STDERR_FILENO))
        return;
    std::fprintf(stderr, "kalix-demo: frame %llu, %.1f a second\n", static_cast<unsigned long long>(done_),
                 static_cast<double>(done_ - told_) / passed);
    told_ = done_;
    told_at_ = now;
}

} // namespace kalix::demo

// Whether the server whose screen is shown still lives: its files stay when it has ended, and would show its last
// picture for good.
#pragma once

#include <chrono>
#include <string>

namespace kalix::view {

class server_watch {
public:
    explicit server_watch(std::string run_directory) : run_directory_{std::move(run_directory)} {}

    // Throws std::runtime_error once the server has ended. May be called as often as one likes: it looks twice a
    // second.
    void expect_alive();

private:
    std::string run_directory_;
    std::chrono::steady_clock::time_point next_look_{};
};

} // namespace kalix::view

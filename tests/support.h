// What the tests of several rooms share: directories and files of their own, children, patience, and the seed.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace kalix::test {

// A directory of the test's own, removed with this.
class fresh_directory {
public:
    explicit fresh_directory(const std::filesystem::path& in = std::filesystem::temp_directory_path());
    ~fresh_directory() { std::filesystem::remove_all(path_); }
    fresh_directory(const fresh_directory&) = delete;
    fresh_directory& operator=(const fresh_directory&) = delete;
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

std::string contents(const std::filesystem::path& file); // empty when it cannot be read
void put(const std::filesystem::path& file, const std::string& text);

// Runs a function in a forked child, which exits with what it returns.
pid_t start_child(const std::function<int()>& run);
// Makes the calling child the program of the first word; what to exit with when there is none.
int become(std::vector<std::string> words);
// Waits for a child of ours: its exit status, or 1000 + the signal that ended it.
int end_of(pid_t child);
int run_child(const std::function<int()>& run);

// Whether a condition comes true within twenty seconds.
bool soon(const std::function<bool()>& condition);

// KALIX_TEST_SEED, else another one each run. Whoever draws from it says it where a test fails.
uint32_t test_seed();

} // namespace kalix::test

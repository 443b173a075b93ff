#include "tests/support.h"

#include <cstdlib>
#include <fstream>
#include <random>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace kalix::test {

fresh_directory::fresh_directory(const std::filesystem::path& in)
{
    std::string name = in / "kalix-test.XXXXXX";
    if (!mkdtemp(name.data()))
        std::abort();
    path_ = name;
}

std::string contents(const std::filesystem::path& file)
{
    std::ifstream from{file, std::ios::binary};
    return {std::istreambuf_iterator<char>{from}, {}};
}

void put(const std::filesystem::path& file, const std::string& text)
{
    std::ofstream{file, std::ios::binary} << text;
}

pid_t start_child(const std::function<int()>& run)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(run());
    return child;
}

int become(std::vector<std::string> words)
{
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    return 99;
}

int end_of(pid_t child)
{
    int status = 0;
    if (waitpid(child, &status, 0) != child)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

int run_child(const std::function<int()>& run)
{
    return end_of(start_child(run));
}

bool soon(const std::function<bool()>& condition)
{
    for (int i = 0; i < 4000; ++i) {
        if (condition())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds{5});
    }
    return false;
}

uint32_t test_seed()
{
    const char* const given = std::getenv("KALIX_TEST_SEED");
    static const uint32_t seed =
        given ? static_cast<uint32_t>(std::strtoul(given, nullptr, 0)) : std::random_device{}();
    return seed;
}

} // namespace kalix::test

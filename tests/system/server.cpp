#include "tests/system/server.h"

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <unistd.h>
#include <utility>

namespace kalix::test {
namespace {

namespace fs = std::filesystem;

int become_server(const std::string& directory, const std::string& log, int ready, std::vector<std::string> words)
{
    ::setenv("KALIX_RUN_DIR", directory.c_str(), 1);
    ::setenv("KALIX_PPS_DIR", (directory + "/pps").c_str(), 1);
    ::setenv("KALIX_FOREGROUND", "1", 1);
    ::setenv("KALIX_LOG", log.c_str(), 1);
    ::setenv("KALIX_READY_FD", std::to_string(ready).c_str(), 1);
    words.insert(words.begin(), program("kalix"));
    return become(words);
}

} // namespace

// What is under test lies beside the folder of the tests.
std::string program(const std::string& name)
{
    return fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "bin" / name;
}

std::vector<std::string> run_directory::shared_objects() const
{
    std::vector<std::string> out;
    for (const auto& entry : fs::directory_iterator(path() + "/shm"))
        out.push_back(entry.path().filename().string());
    return out;
}

server::server(const run_directory& in, const std::vector<std::string>& words, const std::function<void()>& before)
{
    static int started;
    log_path_ = in.path() + "/log." + std::to_string(started++);
    int ready[2];
    if (::pipe(ready) != 0)
        return;
    pid_ = start_child([&] {
        ::close(ready[0]);
        before();
        return become_server(in.path(), log_path_, ready[1], words);
    });
    ::close(ready[1]);
    char byte;
    ready_ = words.empty() && ::read(ready[0], &byte, 1) == 1; // end of file when it ends before it is ready
    ::close(ready[0]);
}

server::~server()
{
    if (pid_ <= 0)
        return;
    send(SIGTERM);
    wait();
}

void server::send(int signal) const
{
    ::kill(pid_, signal);
}

int server::wait()
{
    return end_of(std::exchange(pid_, -1));
}

std::vector<std::string> server::log() const
{
    std::vector<std::string> out;
    std::ifstream file{log_path_};
    for (std::string line; std::getline(file, line);)
        out.push_back(line.substr(std::min(line.find(' ') + 1, line.size())));
    return out;
}

size_t server::descriptors() const
{
    const fs::directory_iterator all{"/proc/" + std::to_string(pid_) + "/fd"};
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

size_t server::mapped_objects() const
{
    std::ifstream maps{"/proc/" + std::to_string(pid_) + "/maps"};
    size_t count = 0;
    for (std::string line; std::getline(maps, line);)
        count += line.find("/shm/svga_dma_") != std::string::npos || line.find("/shm/execbuf_") != std::string::npos ||
                 line.find("/shm/vm_svga:") != std::string::npos;
    return count;
}

} // namespace kalix::test

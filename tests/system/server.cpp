#include "tests/system/server.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace kalix::test {
namespace {

namespace fs = std::filesystem;

// What is under test lies beside the folder of the tests.
fs::path build_directory()
{
    return fs::read_symlink("/proc/self/exe").parent_path().parent_path();
}

std::string server_program()
{
    return (build_directory() / "bin" / "kalix").string();
}

[[noreturn]] void become_server(const std::string& directory, const std::string& log, int ready,
                                const std::vector<std::string>& environment, std::vector<std::string>& words)
{
    ::setenv("KALIX_RUN_DIR", directory.c_str(), 1);
    ::setenv("KALIX_PPS_DIR", (directory + "/pps").c_str(), 1);
    ::setenv("KALIX_FOREGROUND", "1", 1);
    ::setenv("KALIX_LOG", log.c_str(), 1);
    ::setenv("KALIX_READY_FD", std::to_string(ready).c_str(), 1);
    for (const std::string& each : environment)
        ::putenv(const_cast<char*>(each.c_str()));
    std::string program = server_program();
    std::vector<char*> arguments{program.data()};
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    ::execv(program.c_str(), arguments.data());
    ::_exit(127);
}

} // namespace

bool soon(const std::function<bool()>& condition)
{
    for (int i = 0; i < 4000; ++i) {
        if (condition())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds{5});
    }
    return false;
}

run_directory::run_directory()
{
    char name[] = "/dev/shm/kalix-system-XXXXXX";
    path_ = ::mkdtemp(name);
}

run_directory::~run_directory()
{
    fs::remove_all(path_);
}

std::vector<std::string> run_directory::shared_objects() const
{
    std::vector<std::string> out;
    for (const auto& entry : fs::directory_iterator(path_ + "/shm"))
        out.push_back(entry.path().filename().string());
    return out;
}

server::server(const run_directory& in, std::vector<std::string> environment, std::vector<std::string> words)
{
    static int started;
    log_path_ = in.path() + "/log." + std::to_string(started++);
    int ready[2];
    if (::pipe(ready) != 0)
        return;
    pid_ = ::fork();
    if (pid_ == 0) {
        ::close(ready[0]);
        become_server(in.path(), log_path_, ready[1], environment, words);
    }
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
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return status;
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

size_t server::resident_bytes() const
{
    std::ifstream statm{"/proc/" + std::to_string(pid_) + "/statm"};
    size_t total = 0;
    size_t resident = 0;
    statm >> total >> resident;
    return resident * static_cast<size_t>(::sysconf(_SC_PAGESIZE));
}

} // namespace kalix::test

// Files that another process writes: they may be missing, too short, or growing while they are looked at, and none of
// that may fault here. Mapped read-only; a reader cannot harm its server.

#include "tools/screen/mapped_file.h"

#include "tools/screen/published_file.h"

#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>

namespace kalix::tools {
namespace {

[[noreturn]] void fail(int error, const std::string& what)
{
    throw std::system_error{error, std::generic_category(), what};
}

} // namespace

mapped_file::mapped_file(const std::string& path, size_t least) : path_{path}, file_{open_published(path)}
{
    remap();
    const size_t size = bytes_.size();
    if (size >= least)
        return;
    unmap();
    throw std::runtime_error{path + " has " + std::to_string(size) + " bytes, too few to be a server's"};
}

mapped_file::~mapped_file()
{
    unmap();
}

void mapped_file::unmap()
{
    if (!bytes_.empty())
        munmap(const_cast<std::byte*>(bytes_.data()), bytes_.size());
    bytes_ = {};
}

void mapped_file::remap()
{
    struct stat facts {};
    if (fstat(file_.get(), &facts) != 0)
        fail(errno, "look at " + path_);
    // No bytes yet is a server that has made the file and not given it room: what is mapped stays.
    const auto size = static_cast<size_t>(facts.st_size);
    if (size == bytes_.size() || size == 0)
        return;
    void* const at = mmap(nullptr, size, PROT_READ, MAP_SHARED, file_.get(), 0);
    if (at == MAP_FAILED)
        fail(errno, "map " + path_);
    unmap();
    bytes_ = {static_cast<const std::byte*>(at), size};
}

void wait_a_little(int attempt)
{
    // A writer is done in microseconds, unless it has lost its processor to this very loop.
    constexpr int yields = 20;
    if (attempt < yields)
        std::this_thread::yield();
    else
        std::this_thread::sleep_for(std::chrono::microseconds{200});
}

} // namespace kalix::tools

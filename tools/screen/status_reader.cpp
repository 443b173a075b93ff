#include "tools/screen/status_reader.h"

#include "tools/screen/server_state.h"

#include <cstring>
#include <kalix/rundir.h>
#include <stdexcept>

namespace kalix::tools {
namespace {

// The part before the levels, which the sequence speaks of.
constexpr size_t counted_bytes = offsetof(kalix_status, levels);

} // namespace

// Of another version's file, whatever its size, only the beginning is sure to be there.
status_reader::status_reader(const std::string& directory)
    : path_{directory + "/" + kalix_status_file}, file_{path_, offsetof(kalix_status, server_pid)}
{
    if (page().magic != KALIX_STATUS_MAGIC || page().version != KALIX_STATUS_VERSION ||
        page().header_bytes < sizeof(kalix_status) || file_.bytes().size() < sizeof(kalix_status))
        throw std::runtime_error{path_ + " is not a status that this version reads"};
}

const kalix_status& status_reader::page() const
{
    return *reinterpret_cast<const kalix_status*>(file_.bytes().data());
}

std::unique_ptr<kalix_status> status_reader::read() const
{
    auto copy = std::make_unique<kalix_status>();
    const kalix_status& from = page();
    if (!snapshot(from.sequence, [&] { std::memcpy(static_cast<void*>(copy.get()), &from, counted_bytes); }))
        throw std::runtime_error{path_ + " changes too fast to be read"};
    std::memcpy(copy->levels, from.levels, sizeof copy->levels);
    copy->store[sizeof copy->store - 1] = 0;
    return copy;
}

uint64_t status_reader::event_number() const
{
    const std::atomic_ref<uint64_t> number{const_cast<uint64_t&>(page().event_number)};
    return number.load(std::memory_order_relaxed);
}

bool status_reader::server_lives() const
{
    return writer_lives(file_.descriptor());
}

std::unique_ptr<kalix_status> read_status(const std::string& directory)
{
    return status_reader{directory}.read();
}

} // namespace kalix::tools

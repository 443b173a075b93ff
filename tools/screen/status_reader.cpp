#include "tools/screen/status_reader.h"

#include <cstring>
#include <kalix/rundir.h>
#include <stdexcept>

namespace kalix::tools {

std::unique_ptr<kalix_status> read_status(const std::string& directory)
{
    const std::string path = directory + "/" + kalix_status_file;
    const mapped_file file{path, sizeof(kalix_status)};
    const auto& from = *reinterpret_cast<const kalix_status*>(file.bytes().data());
    auto copy = std::make_unique<kalix_status>();
    if (!snapshot(from.sequence, [&] { std::memcpy(copy.get(), &from, sizeof from); }))
        throw std::runtime_error{path + " changes too fast to be read"};
    // Judged in the copy, which nobody changes any more.
    if (copy->magic != KALIX_STATUS_MAGIC || copy->version != KALIX_STATUS_VERSION ||
        copy->header_bytes < sizeof(kalix_status))
        throw std::runtime_error{path + " is not a status that this version reads"};
    return copy;
}

} // namespace kalix::tools

// What a server's driver tells its tools.
#pragma once

#include "tools/screen/mapped_file.h"

#include <kalix/status.h>
#include <memory>
#include <string>

namespace kalix::tools {

// The status file of one server, for who looks at it again and again; the next server has another.
class status_reader {
public:
    // Throws std::system_error or std::runtime_error.
    explicit status_reader(const std::string& directory);

    // A consistent copy. Throws std::runtime_error.
    std::unique_ptr<kalix_status> read() const;
    // The number of the last event; cheap.
    uint64_t event_number() const;
    // Whether its server lives.
    bool server_lives() const;

private:
    const kalix_status& page() const;

    std::string path_;
    mapped_file file_;
};

// A consistent copy of the status file of a run directory. Throws std::system_error or std::runtime_error.
std::unique_ptr<kalix_status> read_status(const std::string& directory);

} // namespace kalix::tools

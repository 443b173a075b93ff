#include "tools/screen/server_state.h"

#include "tools/screen/published_file.h"

#include <fcntl.h>
#include <kalix/rundir.h>
#include <system_error>

namespace kalix::tools {
namespace {

std::string status_path(const std::string& directory)
{
    return directory + "/" + kalix_status_file;
}

} // namespace

// Asked as for a read lock: only a write lock is in its way, which needs the right to write. What readers hold
// themselves makes no dead server live.
bool writer_lives(int status_file) noexcept
{
    struct flock asked {};
    asked.l_type = F_RDLCK;
    asked.l_whence = SEEK_SET;
    return fcntl(status_file, F_OFD_GETLK, &asked) == 0 && asked.l_type == F_WRLCK;
}

server_state state_of_server(const std::string& directory)
{
    try {
        const unique_fd file = open_published(status_path(directory));
        return writer_lives(file.get()) ? server_state::lives : server_state::ended;
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::no_such_file_or_directory)
            throw;
        return server_state::none;
    }
}

bool server_lives(const std::string& directory) noexcept
{
    try {
        return state_of_server(directory) == server_state::lives;
    } catch (const std::exception&) {
        return false;
    }
}

void expect_server(const std::string& directory)
{
    switch (state_of_server(directory)) {
    case server_state::lives:
        return;
    case server_state::ended:
        throw server_ended{};
    case server_state::none:
        throw std::system_error{ENOENT, std::generic_category(), "open " + status_path(directory)};
    }
}

} // namespace kalix::tools

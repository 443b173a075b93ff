// The run directory of this process's server: its lock, its socket's name, and shm/.
//
// Holds the directory from take_run_directory until leave_run_directory. One lock guards the record;
// called by the channel, the shared memory and the end of the process, on any thread.
#pragma once

#include "base/unique_fd.h"

#include <cstdint>
#include <string>

namespace kalix::platform {

struct socket_place {
    unique_fd directory; // the run directory, open
    std::string directory_path;
    std::string name; // of the socket in it
};

// Whose the socket is: one that this process binds is removed at its end, one that it was passed stays.
enum class socket_origin { bound, passed };

// Opens the run directory, making it (0700; 0755 for root) when missing, takes the lock file of the
// channel's name, and empties shm/. Where the server shares with a group and is not root's, that group
// gets the directory, to enter and read it. Returns the place of the socket, its directory -1 after one
// line saying what failed, with errno: a directory of another user or one into which all may write, a
// server that runs already (EWOULDBLOCK).
socket_place take_run_directory(const char* name, socket_origin origin);

// Removes the socket and every object, keeping the directory; nothing when none is taken.
void clean_run_directory();
// The same, and gives the lock back.
void leave_run_directory();

// The directory that was taken, open once more; -1 with errno ENOENT before that.
unique_fd open_taken_directory();

// The directory shm/, open: of the directory taken, or of the one that the environment names. -1 with
// errno after one line; ENOENT once clean_run_directory has run, since what came then would stay.
unique_fd open_objects();

// Removes the objects that the process made for its command buffers and readbacks.
void remove_objects_of(uint32_t pid);

} // namespace kalix::platform

/* Where the files of one server lie.
 *
 * A run directory holds everything of one server: the channel's socket and lock, the screen and status
 * files and the shared-memory objects. It is KALIX_RUN_DIR when set; else /run/kalix for root; else
 * $XDG_RUNTIME_DIR/kalix; else /dev/shm/kalix-UID: kalix_run_directory(), for a server. Clients and tools look
 * for a server that is there, the user's own or the host's: kalix_find_run_directory().
 *
 * Wants C11 or C++20, and POSIX for the user's id. */
#pragma once

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#ifdef __cplusplus
extern "C" {
#endif

static const char kalix_host_run_directory[] = "/run/kalix"; /* of root's server, and of a service's */
static const char kalix_channel_file[] = "svga_ch";     /* the channel's socket */
static const char kalix_lock_file[] = "svga_ch.lock";   /* held by the server while it lives */
static const char kalix_screen_file[] = "screen";       /* screen.h */
static const char kalix_status_file[] = "status";       /* status.h */
static const char kalix_shm_directory[] = "shm";        /* of shared-memory objects */

enum { KALIX_SHM_NAME_MAX = 63 };                     /* bytes of a shared object's name, slash included */

#ifdef __cplusplus
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"   /* this header is C */
#endif

/* Writes the run directory's path into path (room bytes, 4096 is enough for any) and returns its
 * length, or -1 when it does not fit. */
static inline int kalix_run_directory(char *path, size_t room)
{
    const char *given = getenv("KALIX_RUN_DIR");
    const char *session = getenv("XDG_RUNTIME_DIR");
    int length;
    if (given && *given)
        length = snprintf(path, room, "%s", given);
    else if (geteuid() == 0)
        length = snprintf(path, room, "%s", kalix_host_run_directory);
    else if (session && *session)
        length = snprintf(path, room, "%s/kalix", session);
    else
        length = snprintf(path, room, "/dev/shm/kalix-%u", (unsigned)geteuid());
    return length < 0 || (size_t)length >= room ? -1 : length;
}

/* Whether something lies in the directory under the channel's name; errno is EACCES when it may not be entered.
 * Whether that is a socket, and a server listens, shows when a client connects. */
static inline int kalix_holds_channel(const char *directory)
{
    char socket[4096];
    struct stat facts;
    int length = snprintf(socket, sizeof socket, "%s/%s", directory, kalix_channel_file);
    if (length < 0 || (size_t)length >= sizeof socket) {
        errno = ENAMETOOLONG;
        return 0;
    }
    errno = 0;
    return stat(socket, &facts) == 0;
}

/* The same for the run directory of the server to talk to: KALIX_RUN_DIR when set; else the user's own, when it
 * holds a channel's socket; else /run/kalix, when that holds one or may not be entered, so that the error is about
 * it; else the user's own, which no server uses. */
static inline int kalix_find_run_directory(char *path, size_t room)
{
    const char *given = getenv("KALIX_RUN_DIR");
    int length = kalix_run_directory(path, room);
    if (length < 0 || (given && *given) || kalix_holds_channel(path))
        return length;
    if (!kalix_holds_channel(kalix_host_run_directory) && errno != EACCES)
        return length;
    length = snprintf(path, room, "%s", kalix_host_run_directory);
    return length < 0 || (size_t)length >= room ? -1 : length;
}

#ifdef __cplusplus
#pragma GCC diagnostic pop
}
#endif

// The typed calls that ask what the device is: parameters, FIFO registers, capabilities.
// Nothing is kept here: a connection knows its server only by asking. Each works on a record of its own, zero where the
// request has nothing to say, so that the caller's variable changes on success alone.

#include "client/connection.h"

using namespace kalix::client_library;

int kalix_getparam(kalix_connection* connection, uint32_t param, uint64_t* value)
{
    if (!value)
        return -EINVAL;
    getparam_req req{};
    req.param = param;
    if (const int error = call(connection, KALIX_GETPARAM, req, sizeof req))
        return error;
    *value = req.value;
    return 0;
}

int kalix_fifomap(kalix_connection* connection, uint32_t index, uint32_t* value)
{
    if (!value)
        return -EINVAL;
    fifomap_req req{index, 0};
    if (const int error = call(connection, KALIX_FIFOMAP, req, sizeof req))
        return error;
    *value = req.value;
    return 0;
}

int kalix_fifomap_caps(kalix_connection* connection, fifomap_caps_rep* caps)
{
    if (!caps)
        return -EINVAL;
    fifomap_caps_rep rep{};
    if (const int error = call(connection, KALIX_FIFOMAP_CAPS, rep, sizeof rep))
        return error;
    *caps = rep;
    return 0;
}

int kalix_software_mode(kalix_connection* connection, uint32_t* software_mode)
{
    if (!software_mode)
        return -EINVAL;
    software_mode_req req{};
    if (const int error = call(connection, KALIX_SOFTWARE_MODE, req, sizeof req))
        return error;
    *software_mode = req.software_mode;
    return 0;
}

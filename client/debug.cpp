// The typed calls of debugging tools: surfaces of any client, looked at and altered.
//
// A server under KALIX_STRICT=1 answers them for its own user alone.

#include "client/connection.h"

using namespace kalix::client_library;

namespace {

// A record that is question and answer; it changes only when the answer has come.
template <typename record>
int ask(kalix_connection* connection, int32_t command, record* question)
{
    if (!question)
        return -EINVAL;
    record req = *question;
    if (const int error = call(connection, command, req, sizeof req))
        return error;
    *question = req;
    return 0;
}

} // namespace

int kalix_debug_reset(kalix_connection* connection)
{
    // No record goes with it, so the typed call does not fit.
    int32_t status = 0;
    const int error = kalix_request(connection, KALIX_DEBUG_RESET, nullptr, 0, nullptr, 0, nullptr, &status);
    return error ? error : result_of_status(status);
}

int kalix_debug_show(kalix_connection* connection, uint32_t sid)
{
    show_sid_req req{sid};
    return call(connection, KALIX_DEBUG_SHOW_SID, req, 0);
}

int kalix_debug_info(kalix_connection* connection, sid_info_req* information)
{
    return ask(connection, KALIX_DEBUG_SID_INFO, information);
}

int kalix_debug_list(kalix_connection* connection, list_sids_req* list)
{
    return ask(connection, KALIX_DEBUG_LIST_SIDS, list);
}

int kalix_debug_dump(kalix_connection* connection, dump_sid_req* dump)
{
    return ask(connection, KALIX_DEBUG_DUMP_SID, dump);
}

int kalix_debug_fill(kalix_connection* connection, uint32_t sid, uint32_t pixel)
{
    fill_sid_req req{sid, pixel};
    return call(connection, KALIX_DEBUG_FILL_SID, req, sizeof req);
}

// Work that goes on with the next server when its own has gone.
#pragma once

#include <chrono>
#include <functional>
#include <kalix/client.hpp>

namespace kalix::demo {

// Connects and works, and does both again each time that the connection was lost on the way: what was made through it
// is gone then, so that work has to begin by making it anew. A next server is waited for as long as patience says;
// when none comes, or patience is none at all, what the loss threw is thrown on. tell() is called at each loss that is
// waited out. Returns when work does, or when the animation was interrupted while it waited.
void with_servers(std::chrono::seconds patience, const std::function<void()>& tell,
                  const std::function<void(const client::connection&)>& work);

} // namespace kalix::demo

// SPDX-License-Identifier: MIT
// The one instance of the server's state, and the identities of its sessions.
#include "notifyserver/server_state.h"

#include <limits>

#include "base/never_destroyed.h"

namespace zedipc {

namespace {

NeverDestroyed<ServerState> the_server;

}  // namespace

ServerState& server = *the_server;

std::int32_t add_session(IPC* ipc) {
  for (;;) {
    const std::int32_t identity = server.next_identity;
    server.next_identity = identity == std::numeric_limits<std::int32_t>::max()
                               ? ServerState::kFirstIdentity
                               : identity + 1;
    if (server.sessions.emplace(identity, ipc).second) return identity;
  }
}

}  // namespace zedipc

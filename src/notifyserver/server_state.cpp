// SPDX-License-Identifier: MIT
#include "notifyserver/server_state.h"

#include <limits>

namespace zedipc {

namespace {

// Far from the small numbers that a careless sender may put in a message.
constexpr std::int32_t kFirstIdentity = 0x10000000;

}  // namespace

ServerState& server = *new ServerState;

ServerState::ServerState() : next_identity(kFirstIdentity) {}

std::int32_t add_session(IPC* ipc) {
  for (;;) {
    const std::int32_t identity = server.next_identity;
    server.next_identity =
        identity == std::numeric_limits<std::int32_t>::max() ? kFirstIdentity : identity + 1;
    if (server.sessions.emplace(identity, ipc).second) return identity;
  }
}

}  // namespace zedipc

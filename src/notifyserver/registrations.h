// SPDX-License-Identifier: MIT
// What clients tell the server about themselves: what they receive, and whether they observe.
#pragma once

#include "notifyserver/server_state.h"
#include "protocol/message.h"

namespace zedipc {

// "register" and "unregister".
void add_registration(const Session& session, Message& message) REQUIRES(server.server_lock);
void remove_registration(const Session& session, Message& message) REQUIRES(server.server_lock);

// "register_observer" and "unregister_observer", of a local session.
void add_observer(const Session& session) REQUIRES(server.server_lock);
void remove_observer(const Session& session) REQUIRES(server.server_lock);

}  // namespace zedipc

// SPDX-License-Identifier: MIT
// One client's connection at the server, and what is done for its messages.
#pragma once

#include <cstdint>

#include <zedipc/ipc.h>

#include "notifyserver/server_state.h"
#include "protocol/message.h"

namespace zedipc {

// A live session as its own thread sees it.
struct Session {
  IPC* ipc;
  std::int32_t identity;
  bool remote;
};

// The thread function of a session. The argument is the accepted IPC, which the thread
// owns from now on. Returns null when the connection has ended.
void* handle_client(void* accepted);

// Delivers a "notify" that `session` sent.
void route_notification(const Session& session, Message& message) REQUIRES(server.server_lock);

// "register" and "unregister".
void add_registration(const Session& session, Message& message) REQUIRES(server.server_lock);
void remove_registration(const Session& session, Message& message) REQUIRES(server.server_lock);

// "register_observer" and "unregister_observer", of a local session.
void add_observer(const Session& session) REQUIRES(server.server_lock);
void remove_observer(const Session& session) REQUIRES(server.server_lock);

}  // namespace zedipc

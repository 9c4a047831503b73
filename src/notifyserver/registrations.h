// SPDX-License-Identifier: MIT
// What clients tell the server of themselves: what they receive, and whether they observe.
#pragma once

#include "notifyserver/server_state.h"
#include "protocol/message.h"

namespace zedipc {

// "register" and "unregister". The server's lock is held, here and below.
void add_registration(const Session& session, Message& message);
void remove_registration(const Session& session, Message& message);

// "register_observer" and "unregister_observer", of a local session.
void add_observer(const Session& session);
void remove_observer(const Session& session);

}  // namespace zedipc

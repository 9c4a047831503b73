// SPDX-License-Identifier: MIT
// Who gets a notification.
#pragma once

#include "notifyserver/server_state.h"
#include "protocol/message.h"

namespace zedipc {

// Delivers a "notify" that `session` sent.
void route_notification(const Session& session, Message& message) REQUIRES(server.server_lock);

}  // namespace zedipc

// SPDX-License-Identifier: MIT
// Who gets a notification.
#pragma once

#include <string>

#include <zedipc/jsobject.h>

#include "notifyserver/server_state.h"
#include "protocol/envelope.h"

namespace zedipc {

// Delivers a "notify" that `session` sent. `message` is what was parsed from
// `received_text`. The server's lock is held.
void route_notification(const Session& session, JSObject& message,
                        const std::string& received_text);

// The same for a text that stands as it is written. `envelope` was read from
// `received_text`, and loses its strings.
void route_notification(const Session& session, Envelope& envelope,
                        const std::string& received_text);

}  // namespace zedipc

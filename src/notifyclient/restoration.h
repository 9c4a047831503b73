// SPDX-License-Identifier: MIT
// Telling a new connection of all registrations, which may change meanwhile.
#pragma once

#include "notifyclient/connection.h"

namespace zedipc {

// Tells the server of all that is in the tables, and then lets all threads use the
// connection: at a moment at which it knows everything, so that a call which changes a
// table from then on finds it in use when it comes to tell of the change. False if a
// message could not be written.
bool restore_and_publish(Connection& connection) REQUIRES(client.connect_lock);

}  // namespace zedipc

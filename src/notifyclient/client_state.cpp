// SPDX-License-Identifier: MIT
// The one instance of the client's state.
#include "notifyclient/client_state.h"

#include "base/never_destroyed.h"

namespace zedipc {

namespace {

NeverDestroyed<ClientState> the_client;

}  // namespace

Mutex table_lock;
ClientState& client = *the_client;

std::string current_app_id() {
  const MutexLock lock(table_lock);
  return client.app_id;
}

}  // namespace zedipc

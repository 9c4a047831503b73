// SPDX-License-Identifier: MIT
#include "notifyclient/client_state.h"

#include <type_traits>

namespace zedipc {

static_assert(std::is_trivially_destructible<ClientState>::value,
              "threads of the client use it until the process has gone");
ClientState client;

bool current_app_id(std::string& id) {
  const std::lock_guard<std::mutex> lock(client.change_lock);
  if (client.app_id == nullptr) return false;
  id = *client.app_id;
  return !id.empty();
}

}  // namespace zedipc

// SPDX-License-Identifier: MIT
// One client's connection at the server.
#pragma once

namespace zedipc {

// The thread function of a session. The argument is the accepted IPC, which the thread
// owns from now on. Returns null when the connection has ended.
void* handle_client(void* accepted);

}  // namespace zedipc

// SPDX-License-Identifier: MIT
// One client's connection at the server.
#pragma once

namespace zedipc {

// The thread function of a session. The argument is the accepted IPC, which
// belongs to the thread from now on. Ends with the connection; the result is null.
void* handle_client(void* accepted);

}  // namespace zedipc

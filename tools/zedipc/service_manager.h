// SPDX-License-Identifier: MIT
// The service manager that started this process, such as systemd.
#pragma once

namespace command {

// Tells it, at the socket that NOTIFY_SOCKET names, that the service is ready; does nothing
// without one. If that fails it says why, and the manager may end the process.
void tell_ready();

}  // namespace command

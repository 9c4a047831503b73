// SPDX-License-Identifier: MIT
// The service manager that has started this process, as systemd may have.
#pragma once

namespace command {

// Tells it that the service is ready, at the socket that NOTIFY_SOCKET names; does nothing
// without one. If that cannot be done it says why, and the manager may end the process.
void tell_ready();

}  // namespace command

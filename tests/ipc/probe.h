// SPDX-License-Identifier: MIT
// A channel whose inner state can be looked at.
#pragma once

#include <zedipc/tcp.h>

#include "ipc/ipc_private.h"

namespace zedipc::test {

class Probe : public TCP {
 public:
  [[nodiscard]] IpcPrivate& inner() const { return *d; }
  [[nodiscard]] bool armed() const { return (d->cb_state & CB_ARMED) != 0; }
  [[nodiscard]] bool locked() const { return (d->cb_state & CB_LOCKED) != 0; }
};

}  // namespace zedipc::test

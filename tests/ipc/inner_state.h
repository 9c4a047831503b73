// SPDX-License-Identifier: MIT
#pragma once

#include <zedipc/ipc.h>

#include "ipc/ipc_private.h"

namespace zedipc::test {

// What stands behind any channel, also one that the library has made.
inline IPC::IpcPrivate& inner_state(IPC& channel) {
  struct Reach : IPC {
    static IpcPrivate* IPC::*member() { return &Reach::d; }
  };
  return *(channel.*Reach::member());
}

}  // namespace zedipc::test

// SPDX-License-Identifier: MIT
#include "ipc/ipc_private.h"

// The dispatcher is not built yet: no channel can be given a callback, and there is
// no thread to wake or to configure. Channels behave as they do while none runs.

namespace zedipc {

bool IPC::set_callback(ChannelCallback /*callback*/, void* /*data*/) { return false; }

void IPC::set_callback_stacksize(int /*size*/) {}

void IPC::IpcPrivate::notify_cb_thread(bool /*wait*/) {}

}  // namespace zedipc

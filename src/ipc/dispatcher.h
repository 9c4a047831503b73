// SPDX-License-Identifier: MIT
// The dispatcher: the one thread that calls the callbacks of all channels. It lives while a
// channel has a callback.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>

#include "base/mutex.h"
#include "base/never_destroyed.h"
#include "ipc/ipc_private.h"

namespace zedipc {

struct ZEDIPC_HIDDEN Dispatcher {
  struct Registration {
    ChannelCallback callback;
    void* data;
    IPC* ipc;
  };

  // Held by the thread whenever it does not sleep, also during callbacks; recursive for the
  // calls that callbacks make. Lock order: `turn`, `mutex`, the lock of all closes, a channel's
  // read_mutex, its write_mutex, `wake_mutex`.
  Mutex mutex{Mutex::kRecursive};
  // Held while waiting for `mutex`, so that a dispatcher that always has something to do does
  // not take it again and again ahead of others.
  Mutex turn;
  // In the order in which they are served.
  std::map<IPC::IpcPrivate*, Registration> channels GUARDED_BY(mutex);
  bool running GUARDED_BY(mutex) = false;  // the thread exists, and has a pipe
  int wake_end GUARDED_BY(mutex) = -1;     // where it reads what wakes it
  int stack_size GUARDED_BY(mutex) = -1;   // in bytes; 0 or less means the system's default

  // Held for a moment only. Keeps the pipe open while a byte is written to it.
  Mutex wake_mutex;
  std::atomic<int> wake_fd{-1};  // the pipe's other end, changed under the lock; -1 without one
  std::uint64_t passes GUARDED_BY(wake_mutex) = 0;  // that have ended
  Condition passed;
};

extern NeverDestroyed<Dispatcher> dispatcher;

// Wakes the dispatcher, if there is one; with `wait` returns when it has been through a whole
// pass. A callback, which is a part of a pass, is not made to wait.
void notify_cb_thread(bool wait);

}  // namespace zedipc

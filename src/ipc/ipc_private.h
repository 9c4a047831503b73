// SPDX-License-Identifier: MIT
// What stands behind a channel: its socket, flags and locks.
#pragma once

#include <atomic>
#include <mutex>

#include <zedipc/ipc.h>

#include "ipc/sockaddr_text.h"
#include "log/log.h"

namespace zedipc {

// Readers of the log know the whole subsystem by this module.
inline constexpr char kIpcModule[] = "src/ipc.cpp";

#define ZEDIPC_IPC_LOG(level, ...) dbg_log(kIpcModule, __LINE__, level, __VA_ARGS__)

// The bits of IpcPrivate::cb_state.
enum CallbackState : int {
  kCallbackRegistered = 1,  // the channel has a callback
  kCallbackLocked = 2,      // no callback is due: no socket yet, or its end was reported
  kCallbackArmed = 4,       // whatever the last callback announced has been read
};

// The flags, the socket and cb_state are read by threads that hold no lock.
class IPC::IpcPrivate {
 public:
  IpcPrivate() = default;
  IpcPrivate(const IpcPrivate&) = delete;
  IpcPrivate& operator=(const IpcPrivate&) = delete;

  // Leaves the socket open: whoever owns the channel closes it first.
  virtual ~IpcPrivate() = default;
  virtual bool write(const void* data, int size);
  // `rearm` tells the dispatcher, on every way out, that what it announced was read.
  virtual int read(void* data, int size, int timeout_msec, int next_timeout_msec, bool rearm);
  virtual bool poll_in(int timeout_msec);
  // Forgets the socket, without closing it, and all that belonged to it.
  virtual void close();

  // Called when a socket has come to the channel. A dispatcher that watches the
  // channel has taken the socket in when this returns.
  void socket_ready();

  // Wakes the dispatcher; with `wait` returns when it has been through a pass.
  static void notify_cb_thread(bool wait);

  std::atomic<bool> eof_flag{false};    // the peer ended the stream; sticky
  std::atomic<bool> error_flag{false};  // an operation failed; sticky
  char remote_addr[kSockaddrText] = "";
  char local_addr[kSockaddrText] = "";
  std::atomic<int> fd{-1};
  std::atomic<bool> listener{false};
  std::mutex read_mutex;   // one read or poll_in at a time, waits included
  std::mutex write_mutex;  // one write at a time
  std::atomic<int> cb_state{kCallbackLocked};

 private:
  // A read that is under way.
  struct Transfer;
  enum class Step { kGoOn, kEnd };

  int read_locked(void* data, int size, int timeout_msec, int next_timeout_msec);
  Step read_step(Transfer& transfer);
  bool poll_in_locked(int timeout_msec);
  bool require_connection(const char* operation);
  bool require_buffer(const char* operation, const void* data, int size);
  void note_failure(const char* operation, const char* call, int problem);
  void note_end(const char* operation, const char* call);
  void note_hangup(const char* operation, short revents);
};

}  // namespace zedipc

// SPDX-License-Identifier: MIT
// What a channel is made of: its socket, flags and locks.
#pragma once

#include <atomic>

#include <zedipc/ipc.h>

#include "base/mutex.h"
#include "ipc/sockaddr_text.h"
#include "log/log.h"

namespace zedipc {

// Readers of the log know the whole subsystem by this name.
inline constexpr char kIpcModule[] = "src/ipc.cpp";

#define ZEDIPC_IPC_LOG(level, ...) dbg_log(kIpcModule, __LINE__, level, __VA_ARGS__)

// The bits of IpcPrivate::cb_state.
enum CallbackState : int {
  CB_REGISTERED = 1,  // the dispatcher knows the channel
  CB_LOCKED = 2,      // the dispatcher leaves it alone: no socket yet, or its end was told
  CB_ARMED = 4,       // a call may be made: what the last one announced has been read
};

// A receive buffer that takes more memory only as its bytes come.
class GrowingBuffer : public IPC::IpcBuffer {
 public:
  // Makes room for more than the `filled` bytes of `size`; gives its length then.
  virtual int grow(int filled, int size) = 0;
};

// The flags, the socket and cb_state are read by threads that hold no lock. A new socket is
// published by `fd` and then, to the dispatcher, by CB_LOCKED, so these are acquired.
class IPC::IpcPrivate {
 public:
  IpcPrivate() = default;
  IpcPrivate(const IpcPrivate&) = delete;
  IpcPrivate& operator=(const IpcPrivate&) = delete;

  // Leaves the socket open: whoever owns the channel closes it first.
  virtual ~IpcPrivate() = default;
  bool write(const void* data, int size);
  // With `rearm` the dispatcher hears, on every way out, that what it announced was read.
  int read(void* data, int size, int timeout_msec, int next_timeout_msec, bool rearm);
  // The same into a buffer that grows, with one timeout for every piece and with `rearm`.
  int read(GrowingBuffer& buffer, int size, int timeout_msec);
  // Shows what a read would take next, as far as it has come, and takes nothing. Waits and
  // fails as a read does; the result is 0 then.
  int peek(void* data, int size, int timeout_msec);
  bool poll_in(int timeout_msec);
  // Forgets the socket, without closing it, and all that belonged to it.
  void close();

  // Give the channel a new socket, when everything else about it, the addresses above all,
  // has been written: from here on other threads may use it. A dispatcher that knows the
  // channel watches the socket when the first of them returns.
  void publish_socket(int socket);
  void publish_listener(int socket);

  std::atomic<bool> eof_flag{false};    // the peer ended the stream; sticky
  std::atomic<bool> error_flag{false};  // an operation failed; sticky
  char remote_addr[kSockaddrText] = "";
  char local_addr[kSockaddrText] = "";
  std::atomic<int> fd{-1};
  std::atomic<bool> listener{false};
  Mutex read_mutex;   // one read or poll_in at a time, waits included
  Mutex write_mutex;  // one write at a time
  std::atomic<int> cb_state{CB_LOCKED};
  std::atomic<bool> had_callback{false};  // ever: if not, the dispatcher has never seen it

  // Whether a channel that was seen readable has something for its callback, if it still has
  // this socket. If so, it is not watched until it is armed again or, after its end or a
  // failure, connected again. The pointers are for the log.
  bool take_input(int watched_fd, void* function, void* ipc);

 private:
  // A read that is under way.
  struct Transfer;
  class Rearming;
  enum class Step { kGoOn, kEnd };

  int read_locked(void* data, int size, int timeout_msec, int next_timeout_msec)
      REQUIRES(read_mutex);
  Step read_step(Transfer& transfer) REQUIRES(read_mutex);
  bool poll_in_locked(int timeout_msec) REQUIRES(read_mutex);
  bool await_input(int timeout_msec) REQUIRES(read_mutex);
  bool require_connection(const char* operation);
  bool require_buffer(const char* operation, const void* data, int size);
  void note_failure(const char* operation, const char* call, int problem);
  void note_end(const char* operation, const char* call);
  void note_hangup(const char* operation, short revents);
};

}  // namespace zedipc

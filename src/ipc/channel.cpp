// SPDX-License-Identifier: MIT
// What all channels do once they have a socket: read, write, ask for input, close.
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstddef>
#include <optional>

#include "ipc/dispatcher.h"
#include "ipc/ipc_private.h"
#include "ipc/socket.h"

namespace zedipc {

namespace {

// Held by every close in the process: of two threads that close one channel only one finds
// the socket.
Mutex close_mutex;

constexpr short kHangup = POLLERR | POLLHUP | POLLNVAL;

}  // namespace

// ---- IPC: the public face

IPC::IpcBuffer::~IpcBuffer() = default;

IPC::IPC(IpcPrivate* channel) : d(channel) {}

IPC::~IPC() { delete d; }

bool IPC::eof() { return d->eof_flag.load(std::memory_order_relaxed); }

bool IPC::error() { return d->error_flag.load(std::memory_order_relaxed); }

bool IPC::is_server() { return d->listener.load(std::memory_order_relaxed); }

int IPC::getFD() const { return d->fd.load(std::memory_order_acquire); }

const char* IPC::remote_addr() const { return d->remote_addr; }

const char* IPC::local_addr() const { return d->local_addr; }

const char* IPC::getVersion() {
  static const char kBanner[] = "$VER libzedipc 1.18.0 Apr 30 2021 09:42:01";
  return kBanner + sizeof "$VER " - 1;  // tools find the banner in a file by this prefix
}

const char* IPC::ipc_GetVersion() { return "1.18.0-1"; }

IPC* IPC::accept(int /*timeout_msec*/) { return nullptr; }

bool IPC::write(const void* data, int size) {
  const LogChannelScope scope(kLogIpc);
  return d->write(data, size);
}

int IPC::read(void* data, int size, int timeout_msec, int next_timeout_msec) {
  const LogChannelScope scope(kLogIpc);
  return d->read(data, size, timeout_msec, next_timeout_msec, true);
}

int IPC::read(void* data, int size, int timeout_msec) {
  return read(data, size, timeout_msec, timeout_msec);
}

bool IPC::poll_in(int timeout_msec) {
  const LogChannelScope scope(kLogIpc);
  return d->poll_in(timeout_msec);
}

void IPC::close() {
  const MutexLock closing(close_mutex);
  const int fd = d->fd.load(std::memory_order_acquire);
  if (fd == -1) return;  // with the flags as they are, on purpose: callers know it so
  // Ends whatever other threads are blocked in, so that they let go of the locks.
  ::shutdown(fd, SHUT_RDWR);
  {
    const MutexLock reading(d->read_mutex);
    const MutexLock writing(d->write_mutex);
    // Forgotten first: the number may be somebody else's as soon as it is closed.
    d->fd.store(-1, std::memory_order_relaxed);
    close_fd(fd);
  }
  d->close();
}

// ---- IPC::IpcPrivate: the operations

void IPC::IpcPrivate::close() {
  fd.store(-1, std::memory_order_relaxed);
  listener.store(false, std::memory_order_relaxed);
  eof_flag.store(false, std::memory_order_relaxed);
  error_flag.store(false, std::memory_order_relaxed);
  remote_addr[0] = '\0';
  local_addr[0] = '\0';
  cb_state.fetch_or(CB_LOCKED, std::memory_order_relaxed);
}

bool IPC::IpcPrivate::require_buffer(const char* operation, const void* data, int size) {
  if (data != nullptr && size >= 0) return true;
  error_flag.store(true, std::memory_order_relaxed);
  // The line shows a size of 0, whatever it was: readers of the log know it so.
  ZEDIPC_IPC_LOG(kLogError, "%p->IpcPrivate::%s(): invalid parameter (data=%p, size=%d)\n",
                 static_cast<void*>(this), operation, data, 0);
  return false;
}

bool IPC::IpcPrivate::require_connection(const char* operation) {
  const char* problem = nullptr;
  if (fd.load(std::memory_order_acquire) == -1) {
    problem = "no connection";
  } else if (listener.load(std::memory_order_relaxed)) {
    problem = "not allowed for listener";
  } else {
    return true;
  }
  error_flag.store(true, std::memory_order_relaxed);
  ZEDIPC_IPC_LOG(kLogError, "%p->IpcPrivate::%s(): %s\n", static_cast<void*>(this), operation,
                 problem);
  return false;
}

bool IPC::IpcPrivate::write(const void* data, int size) {
  if (size == 0) return true;  // an empty payload, whatever the channel's state
  const MutexLock lock(write_mutex);
  const bool valid = require_buffer("write", data, size);
  if (!require_connection("write")) return false;
  if (!valid) return false;
  const auto* next = static_cast<const char*>(data);
  auto remaining = static_cast<std::size_t>(size);
  while (remaining > 0) {
    const ssize_t sent = ::send(fd.load(std::memory_order_relaxed), next, remaining, MSG_NOSIGNAL);
    if (sent >= 0) {
      next += sent;
      remaining -= static_cast<std::size_t>(sent);
    } else if (errno != EINTR) {
      note_failure("write", "send()", errno);
      return false;
    }
  }
  return true;
}

// Tells the dispatcher, at the end of a read, that what it announced was read.
class IPC::IpcPrivate::Rearming {
 public:
  explicit Rearming(IpcPrivate& channel) : channel_(channel) {}
  ~Rearming() {
    // The bit before the wake-up, so that the pass that follows sees it.
    channel_.cb_state.fetch_or(CB_ARMED, std::memory_order_relaxed);
    notify_cb_thread(false);
  }
  Rearming(const Rearming&) = delete;
  Rearming& operator=(const Rearming&) = delete;

 private:
  IpcPrivate& channel_;
};

int IPC::IpcPrivate::read(void* data, int size, int timeout_msec, int next_timeout_msec,
                          bool rearm) {
  const MutexLock lock(read_mutex);
  std::optional<Rearming> rearming;
  if (rearm) rearming.emplace(*this);
  const bool valid = require_buffer("read", data, size);
  const bool connected = require_connection("read");
  return valid && connected ? read_locked(data, size, timeout_msec, next_timeout_msec) : 0;
}

int IPC::IpcPrivate::read(GrowingBuffer& buffer, int size, int timeout_msec) {
  const MutexLock lock(read_mutex);
  int room = buffer.grow(0, size);
  const Rearming rearming(*this);
  if (!require_connection("read")) return 0;
  for (int filled = 0;; room = buffer.grow(filled, size)) {
    char* const next = static_cast<char*>(buffer.data()) + filled;
    filled += read_locked(next, room - filled, timeout_msec, timeout_msec);
    if (filled < room || room == size) return filled;
  }
}

struct IPC::IpcPrivate::Transfer {
  char* next;
  int remaining;
  int timeout_msec;
  int flags;  // of recv
};

int IPC::IpcPrivate::peek(void* data, int size, int timeout_msec) {
  const MutexLock lock(read_mutex);
  if (!require_connection("read")) return 0;
  Transfer transfer{static_cast<char*>(data), size, timeout_msec, MSG_PEEK};
  while (transfer.remaining == size && read_step(transfer) == Step::kGoOn) {
  }
  return size - transfer.remaining;
}

int IPC::IpcPrivate::read_locked(void* data, int size, int timeout_msec, int next_timeout_msec) {
  Transfer transfer{static_cast<char*>(data), size, timeout_msec, 0};
  while (transfer.remaining > 0) {
    const int before = transfer.remaining;
    if (read_step(transfer) == Step::kEnd) break;
    if (transfer.remaining != before) transfer.timeout_msec = next_timeout_msec;
  }
  return size - transfer.remaining;
}

// One wait, and what it found.
IPC::IpcPrivate::Step IPC::IpcPrivate::read_step(Transfer& transfer) {
  pollfd pf{fd.load(std::memory_order_relaxed), POLLIN, 0};
  const int ready = ::poll(&pf, 1, transfer.timeout_msec);
  if (ready == 0) return Step::kEnd;
  if (ready == -1) {
    if (errno == EINTR) return Step::kGoOn;
    note_failure("read", "poll()", errno);
    return Step::kEnd;
  }
  // Data first: what came before a hang-up can still be read.
  if ((pf.revents & POLLIN) == 0) {
    if ((pf.revents & kHangup) == 0) return Step::kGoOn;
    note_hangup("read", pf.revents);
    return Step::kEnd;
  }
  const ssize_t received =
      ::recv(pf.fd, transfer.next, static_cast<std::size_t>(transfer.remaining), transfer.flags);
  if (received == -1) {
    if (errno == EINTR) return Step::kGoOn;
    note_failure("read", "recv()", errno);
    return Step::kEnd;
  }
  if (received == 0) {
    note_end("read", "recv()");
    return Step::kEnd;
  }
  transfer.next += received;
  transfer.remaining -= static_cast<int>(received);
  ZEDIPC_IPC_LOG(kLogDebug, "%p->IpcPrivate::read() -> %d bytes read successfully (%d remaining)\n",
                 static_cast<void*>(this), static_cast<int>(received), transfer.remaining);
  return Step::kGoOn;
}

void IPC::IpcPrivate::note_failure(const char* operation, const char* call, int problem) {
  error_flag.store(true, std::memory_order_relaxed);
  ZEDIPC_IPC_LOG(kLogError, "%p->IpcPrivate::%s(): %s returned -1 (errno=%d)\n",
                 static_cast<void*>(this), operation, call, problem);
}

void IPC::IpcPrivate::note_end(const char* operation, const char* call) {
  eof_flag.store(true, std::memory_order_relaxed);
  ZEDIPC_IPC_LOG(kLogDebug, "%p->IpcPrivate::%s(): %s returned 0 (eof)\n", static_cast<void*>(this),
                 operation, call);
}

// Sets the flags for a wait that ended without data to read.
void IPC::IpcPrivate::note_hangup(const char* operation, short revents) {
  if ((revents & (POLLERR | POLLNVAL)) != 0) error_flag.store(true, std::memory_order_relaxed);
  if ((revents & POLLHUP) != 0) eof_flag.store(true, std::memory_order_relaxed);
  const bool ended = eof_flag.load(std::memory_order_relaxed);
  ZEDIPC_IPC_LOG(ended ? kLogDebug : kLogError,
                 "%p->IpcPrivate::%s(): poll() returned pf.revents=%d (%s)\n",
                 static_cast<void*>(this), operation, revents, ended ? "eof" : "error");
}

bool IPC::IpcPrivate::poll_in(int timeout_msec) {
  const MutexLock lock(read_mutex);
  return poll_in_locked(timeout_msec);
}

// An end or a failure is something to read too, whenever it was noted, and so is a socket
// that is not there.
bool IPC::IpcPrivate::poll_in_locked(int timeout_msec) {
  const bool has_data = await_input(timeout_msec);
  if (!eof_flag.load(std::memory_order_relaxed) && !error_flag.load(std::memory_order_relaxed)) {
    return has_data;
  }
  cb_state.fetch_or(CB_ARMED, std::memory_order_relaxed);
  return true;
}

bool IPC::IpcPrivate::await_input(int timeout_msec) {
  for (;;) {
    if (!require_connection("poll_in")) return false;
    pollfd pf{fd.load(std::memory_order_relaxed), POLLIN, 0};
    const int ready = ::poll(&pf, 1, timeout_msec);
    if (ready == 0) return false;
    if (ready == -1) {
      if (errno == EINTR) continue;
      note_failure("poll_in", "poll()", errno);
      return false;
    }
    // Other events do not make it wait again, as they do a read.
    if ((pf.revents & POLLIN) == 0) {
      if ((pf.revents & kHangup) != 0) note_hangup("poll_in", pf.revents);
      return false;
    }
    char byte;
    const ssize_t received = ::recv(pf.fd, &byte, 1, MSG_PEEK);
    if (received > 0) return true;
    if (received == 0) {
      note_end("poll_in", "recv(MSG_PEEK)");
      return false;
    }
    if (errno == EINTR) continue;
    note_failure("poll_in", "recv(MSG_PEEK)", errno);
    return false;
  }
}

void IPC::IpcPrivate::publish_socket(int socket) {
  fd.store(socket, std::memory_order_release);
  const int before = cb_state.fetch_and(~CB_LOCKED, std::memory_order_release);
  if ((before & CB_REGISTERED) != 0) notify_cb_thread(true);
}

// The channel stays locked: peers are taken with accept, and no callback tells of them.
void IPC::IpcPrivate::publish_listener(int socket) {
  listener.store(true, std::memory_order_relaxed);
  fd.store(socket, std::memory_order_release);
}

}  // namespace zedipc

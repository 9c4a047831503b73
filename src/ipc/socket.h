// SPDX-License-Identifier: MIT
// Descriptors and the system calls that both kinds of channel make on them.
#pragma once

#include <sys/socket.h>

#include <utility>

#include <zedipc/ipc.h>

namespace zedipc {

// Closes a descriptor unless the number is -1; nobody could do anything about a
// failure.
void close_fd(int fd);

// A descriptor that is closed with the object, unless it was given away.
class UniqueFd {
 public:
  explicit UniqueFd(int fd) : fd_(fd) {}
  ~UniqueFd() { close_fd(fd_); }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  [[nodiscard]] bool valid() const { return fd_ != -1; }
  [[nodiscard]] int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

// connect(2), made again when a signal interrupts it.
int connect_socket(int fd, const sockaddr* address, socklen_t length);

// accept(2): waits for a peer of `channel`, and gives its socket, with the peer's
// address in `address` unless that is null. -1 if none came, or on a failure, which is
// logged with `operation`.
int accept_socket(const IPC::IpcPrivate& channel, int timeout_msec, const char* operation,
                  sockaddr_storage* address);

}  // namespace zedipc

// SPDX-License-Identifier: MIT
// The calls on descriptors that Pipe and TCP share.
#include "ipc/socket.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include "ipc/ipc_private.h"

namespace zedipc {

void close_fd(int fd) {
  if (fd != -1) ::close(fd);
}

int connect_socket(int fd, const sockaddr* address, socklen_t length) {
  int result;
  do {
    result = ::connect(fd, address, length);
  } while (result == -1 && errno == EINTR);
  return result;
}

int accept_socket(const IPC::IpcPrivate& channel, int timeout_msec, const char* operation,
                  sockaddr_storage* address) {
  for (;;) {
    // Looked at each time: another thread may close the listener meanwhile.
    pollfd pf{channel.fd.load(std::memory_order_acquire), POLLIN, 0};
    if (pf.fd == -1 || !channel.listener.load(std::memory_order_relaxed)) return -1;
    const int ready = ::poll(&pf, 1, timeout_msec);
    if (ready == -1 && errno == EINTR) continue;
    if (ready <= 0 || (pf.revents & POLLNVAL) != 0) return -1;
    if ((pf.revents & POLLIN) == 0) continue;
    socklen_t length = sizeof *address;
    const int accepted = ::accept4(pf.fd, reinterpret_cast<sockaddr*>(address),
                                   address == nullptr ? nullptr : &length, SOCK_CLOEXEC);
    if (accepted != -1) return accepted;
    if (errno == EINTR) continue;
    ZEDIPC_IPC_LOG(kLogError, "%s(): accept() failed\n", operation);
    return -1;
  }
}

}  // namespace zedipc

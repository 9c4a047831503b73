// SPDX-License-Identifier: MIT
// One datagram to the socket that NOTIFY_SOCKET names.
#include "zedipc/service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

#include "zedipc/output.h"

namespace command {

namespace {

constexpr char kReady[] = "READY=1";

// 0, or why not as an error number.
int send_text(const std::string& path, const std::string& text) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return ENAMETOOLONG;
  std::memcpy(address.sun_path, path.data(), path.size());
  if (path[0] == '@') address.sun_path[0] = '\0';  // a name that is no file
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd == -1) return errno;
  const ssize_t count = sendto(fd, text.data(), text.size(), MSG_NOSIGNAL,
                               reinterpret_cast<const sockaddr*>(&address), length);
  const int problem = count == -1 ? errno : 0;
  close(fd);
  return problem;
}

}  // namespace

void tell_ready() {
  const char* const path = std::getenv("NOTIFY_SOCKET");
  if (path == nullptr || *path == '\0') return;
  if (const int problem = send_text(path, kReady)) {
    say(std::string(
            "cannot tell the service manager, at NOTIFY_SOCKET, that the server is ready: ") +
        std::strerror(problem));
  }
}

}  // namespace command

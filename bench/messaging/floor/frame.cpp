// SPDX-License-Identifier: MIT
#include "floor/frame.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace bench::floor_subject {

namespace {

constexpr std::uint32_t kId = 0x464c4f52;
constexpr std::uint32_t kSizeLimit = 1 << 20;
constexpr int kBacklog = 128;

struct Header {
  std::uint32_t id;
  std::uint32_t size;
  std::uint32_t tag;
};

bool send_all(int fd, const void* data, std::size_t size) {
  const auto* next = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t sent = send(fd, next, size, MSG_NOSIGNAL);
    if (sent == -1) {
      if (errno == EINTR) continue;
      return false;
    }
    next += sent;
    size -= static_cast<std::size_t>(sent);
  }
  return true;
}

bool receive_all(int fd, void* data, std::size_t size) {
  auto* next = static_cast<char*>(data);
  while (size > 0) {
    pollfd pf{fd, POLLIN, 0};
    if (poll(&pf, 1, -1) == -1 && errno != EINTR) return false;
    const ssize_t received = recv(fd, next, size, 0);
    if (received == -1 && errno == EINTR) continue;
    if (received <= 0) return false;
    next += received;
    size -= static_cast<std::size_t>(received);
  }
  return true;
}

int require(int result, const char* what) {
  if (result == -1) throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
  return result;
}

sockaddr_in loopback(unsigned short port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

sockaddr_un local(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) throw std::runtime_error("too long: " + path);
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

void set_option(int fd, int level, int option) {
  const int on = 1;
  setsockopt(fd, level, option, &on, sizeof on);
}

template <typename Address>
int make_listener(const Address& address) {
  const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
  const int fd = require(socket(generic->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
  set_option(fd, SOL_SOCKET, SO_REUSEADDR);
  require(bind(fd, generic, sizeof address), "bind");
  require(listen(fd, kBacklog), "listen");
  return fd;
}

template <typename Address>
int make_connection(const Address& address) {
  const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
  const int fd = require(socket(generic->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
  require(connect(fd, generic, sizeof address), "connect");
  set_option(fd, IPPROTO_TCP, TCP_NODELAY);
  return fd;
}

}  // namespace

bool send_frame(int fd, const std::string& text) {
  const Header header{htonl(kId), htonl(static_cast<std::uint32_t>(text.size())), 0};
  return send_all(fd, &header, sizeof header) && send_all(fd, text.data(), text.size());
}

bool receive_frame(int fd, std::string& text) {
  Header header{};
  if (!receive_all(fd, &header, sizeof header)) return false;
  if (ntohl(header.id) != kId || ntohl(header.size) > kSizeLimit) return false;
  text.resize(ntohl(header.size));
  return receive_all(fd, text.data(), text.size());
}

int listen_on(unsigned short port) { return make_listener(loopback(port)); }

int listen_on(const std::string& path) { return make_listener(local(path)); }

int connect_to(unsigned short port) { return make_connection(loopback(port)); }

int connect_to(const std::string& path) { return make_connection(local(path)); }

int accept_from(int listener) {
  const int fd = require(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC), "accept");
  set_option(fd, IPPROTO_TCP, TCP_NODELAY);  // refused by a local socket, which needs it not
  return fd;
}

}  // namespace bench::floor_subject

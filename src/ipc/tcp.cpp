// SPDX-License-Identifier: MIT
// Channels over TCP: host names and ports, and how the socket comes to be.
#include <zedipc/tcp.h>

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>

#include "base/number.h"
#include "ipc/ipc_private.h"
#include "ipc/socket.h"

namespace zedipc {

class TCP::TcpPrivate : public IPC::IpcPrivate {};

namespace {

bool set_option(int fd, int level, int option, int value) {
  return ::setsockopt(fd, level, option, &value, sizeof value) == 0;
}

// Best effort: a connection without these works too.
void set_connection_options(int fd) {
  set_option(fd, IPPROTO_TCP, TCP_NODELAY, 1);
  set_option(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
}

// Sockets made here have no other status flags that could be lost.
void set_nonblocking(int fd, bool on) { ::fcntl(fd, F_SETFL, on ? O_NONBLOCK : 0); }

void store_local_address(char* out, int fd) {
  sockaddr_storage storage{};
  socklen_t length = sizeof storage;
  *out = '\0';
  if (::getsockname(fd, reinterpret_cast<sockaddr*>(&storage), &length) == 0) {
    sockaddr_text(out, reinterpret_cast<const sockaddr*>(&storage));
  }
}

using AddressList = std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)>;

// 0 and a list, or getaddrinfo's own error code.
int look_up(const char* node, unsigned short port, const addrinfo& hints, AddressList& list) {
  char service[10];
  std::snprintf(service, sizeof service, "%d", port);
  addrinfo* found = nullptr;
  const int problem = ::getaddrinfo(node, service, &hints, &found);
  if (problem == 0) list.reset(found);
  return problem;
}

int make_socket(const addrinfo& entry) {
  return ::socket(entry.ai_family, entry.ai_socktype | SOCK_CLOEXEC, entry.ai_protocol);
}

// The first socket that can be bound to an address of the list; -1 if none can.
int bind_first(const addrinfo* list, const char* node, unsigned short port) {
  for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
    const int fd = make_socket(*entry);
    if (fd == -1) {
      ZEDIPC_IPC_LOG(kLogError, "TCP::listen() socket() failed\n");
      continue;
    }
    set_option(fd, SOL_SOCKET, SO_REUSEADDR, 1);
    if (::bind(fd, entry->ai_addr, entry->ai_addrlen) == 0) return fd;
    ZEDIPC_IPC_LOG(kLogError, "TCP::listen() bind() failed for %s:%d, close fd=%d\n",
                   node == nullptr ? "" : node, port, fd);
    close_fd(fd);
  }
  return -1;
}

int connect_to(int fd, const addrinfo& entry) {
  return connect_socket(fd, entry.ai_addr, entry.ai_addrlen);
}

// Whether a connection that is under way is made within the timeout.
bool await_connection(int fd, int timeout_msec) {
  pollfd pf{fd, POLLOUT, 0};
  int ready;
  do {
    ready = ::poll(&pf, 1, timeout_msec);
  } while (ready == -1 && errno == EINTR);
  if (ready != 1) return false;
  int problem = 0;
  socklen_t length = sizeof problem;
  return ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &problem, &length) == 0 && problem == 0;
}

bool connect_within(int fd, const addrinfo& entry, int timeout_msec) {
  set_nonblocking(fd, true);
  if (connect_to(fd, entry) == -1) {
    if (errno != EINPROGRESS || !await_connection(fd, timeout_msec)) return false;
  }
  set_nonblocking(fd, false);
  return true;
}

// A socket connected to the first address of the list that answers, whose text
// goes to `remote_addr`; -1 if none does.
int connect_first(const addrinfo* list, int timeout_msec, char* remote_addr) {
  for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
    const int fd = make_socket(*entry);
    if (fd == -1) continue;
    const bool connected =
        timeout_msec < 0 ? connect_to(fd, *entry) == 0 : connect_within(fd, *entry, timeout_msec);
    if (connected) {
      sockaddr_text(remote_addr, entry->ai_addr);
      return fd;
    }
    close_fd(fd);
  }
  return -1;
}

unsigned short read_port(const std::string& text) {
  return static_cast<unsigned short>(text_to_int32(text.c_str()));
}

// Splits "name:port" or "[address]:port", where `port` is 0, and takes the brackets
// off an address. A port that is not there or makes no sense stays 0.
void split_host(std::string& name, unsigned short& port) {
  const bool bracketed = !name.empty() && name[0] == '[';
  const std::size_t bracket = bracketed ? name.rfind(']') : std::string::npos;
  if (port == 0) {
    const std::size_t colon = name.rfind(':');
    if (colon == std::string::npos) return;
    if (bracketed && (bracket == std::string::npos || colon < bracket)) return;
    port = read_port(name.substr(colon + 1));
    if (!bracketed) name.resize(colon);
  }
  if (!bracketed) return;
  if (bracket != std::string::npos) name.resize(bracket);
  name.erase(0, 1);
}

}  // namespace

TCP::TCP() : IPC(new TcpPrivate) {}

TCP::~TCP() {
  const LogChannelScope scope(kLogIpc);
  IPC::set_callback(nullptr, nullptr);
  TCP::close();
}

void TCP::close() {
  const LogChannelScope scope(kLogIpc);
  IPC::close();
}

bool TCP::listen(unsigned short port, const char* node) {
  const LogChannelScope scope(kLogIpc);
  close();
  addrinfo hints{};
  hints.ai_flags = AI_PASSIVE;
  // The IPv6 wildcard serves IPv4 peers too, where the system maps them.
  hints.ai_family = node == nullptr ? AF_INET6 : AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  AddressList list(nullptr, ::freeaddrinfo);
  if (const int problem = look_up(node, port, hints, list)) {
    ZEDIPC_IPC_LOG(kLogError, "TCP::listen() getaddrinfo() for %s:%d failed with error %d\n",
                   node == nullptr ? "" : node, port, problem);
    return false;
  }
  constexpr int kBacklog = 128;
  const int fd = bind_first(list.get(), node, port);
  if (fd == -1) {
    ZEDIPC_IPC_LOG(kLogError, "TCP::listen() failed\n");
    return false;
  }
  if (::listen(fd, kBacklog) == -1) {
    close_fd(fd);
    ZEDIPC_IPC_LOG(kLogError, "TCP::listen(): listen() failed (fd=%d)\n", fd);
    return false;
  }
  ZEDIPC_IPC_LOG(kLogDebug, "TCP::listen(): listening on port %d (ip=%s), fd=%d\n", port,
                 node == nullptr ? "any" : node, fd);
  store_local_address(d->local_addr, fd);
  d->remote_addr[0] = '\0';
  d->publish_listener(fd);
  return true;
}

bool TCP::connect(const char* host, unsigned short port, int timeout_msec) {
  const LogChannelScope scope(kLogIpc);
  close();
  if (host == nullptr) {
    ZEDIPC_IPC_LOG(kLogError, "TCP::connect(): no hostname\n");
    return false;
  }
  std::string name = host;
  split_host(name, port);
  if (port == 0) {
    ZEDIPC_IPC_LOG(kLogError, "TCP::connect(): invalid port\n");
    return false;
  }
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  AddressList list(nullptr, ::freeaddrinfo);
  if (const int problem = look_up(name.c_str(), port, hints, list)) {
    ZEDIPC_IPC_LOG(kLogError, "TCP::connect() getaddrinfo failed error %d\n", problem);
    return false;
  }
  const int fd = connect_first(list.get(), timeout_msec, d->remote_addr);
  if (fd == -1) {
    ZEDIPC_IPC_LOG(kLogError, "TCP::connect(): failed to connect to %s:%d\n", host, port);
    return false;
  }
  ZEDIPC_IPC_LOG(kLogDebug, "TCP::connect(): connected to %s:%d (fd=%d)\n", host, port, fd);
  set_connection_options(fd);
  store_local_address(d->local_addr, fd);
  d->publish_socket(fd);
  return true;
}

IPC* TCP::accept(int timeout_msec) {
  const LogChannelScope scope(kLogIpc);
  sockaddr_storage storage{};
  UniqueFd fd(accept_socket(*d, timeout_msec, "TCP::accept", &storage));
  if (!fd.valid()) return nullptr;
  set_connection_options(fd.get());
  auto session = std::make_unique<TCP>();
  sockaddr_text(session->d->remote_addr, reinterpret_cast<const sockaddr*>(&storage));
  store_local_address(session->d->local_addr, fd.get());
  session->d->publish_socket(fd.release());
  return session.release();
}

bool TCP::setFD(int fd) {
  const LogChannelScope scope(kLogIpc);
  close();
  d->publish_socket(fd);
  return true;
}

bool TCP::setKeepalive(int count, int seconds) {
  const int fd = getFD();
  return set_option(fd, SOL_SOCKET, SO_KEEPALIVE, count > 0 ? 1 : 0) &&
         set_option(fd, IPPROTO_TCP, TCP_KEEPCNT, count) &&
         set_option(fd, IPPROTO_TCP, TCP_KEEPIDLE, seconds) &&
         set_option(fd, IPPROTO_TCP, TCP_KEEPINTVL, seconds);
}

}  // namespace zedipc

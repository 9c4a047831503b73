// SPDX-License-Identifier: MIT
// What tests of listening and connecting share.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zedipc/pipe.h>
#include <zedipc/tcp.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "ipc/channels.h"

namespace zedipc::test {

using Session = std::unique_ptr<IPC>;

struct ListeningPipe {
  ListeningPipe() { EXPECT_TRUE(channel.listen(name.c_str())); }

  ScratchDir dir;
  const std::string name = dir.file("pipe");
  Pipe channel;
};

inline bool exists(const std::string& path) {
  struct stat status;
  return lstat(path.c_str(), &status) == 0;
}

inline bool is_socket_file(const std::string& path) {
  struct stat status;
  return lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

// An end of a stream socket that listens in the kernel's books and answers nobody: its
// queue is full, so a connection to it is neither made nor refused.
class FullListener {
 public:
  FullListener() : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    EXPECT_EQ(bind(fd_, generic(), sizeof address_), 0) << std::strerror(errno);
    EXPECT_EQ(listen(fd_, 0), 0) << std::strerror(errno);
    socklen_t length = sizeof address_;
    getsockname(fd_, reinterpret_cast<sockaddr*>(&address_), &length);
    const RawPeer& first = queued_.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(connect(first.fd(), generic(), sizeof address_), 0) << std::strerror(errno);
  }
  ~FullListener() { close(); }
  FullListener(const FullListener&) = delete;
  FullListener& operator=(const FullListener&) = delete;

  [[nodiscard]] unsigned short port() const { return ntohs(address_.sin_port); }
  // Takes the one that waits in the queue, so that the next can come.
  void make_room() { queued_.emplace_back(accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC)); }
  void close() {
    if (fd_ != -1) ::close(fd_);
    fd_ = -1;
  }

 private:
  [[nodiscard]] const sockaddr* generic() const {
    return reinterpret_cast<const sockaddr*>(&address_);
  }

  int fd_;
  sockaddr_in address_{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
  std::vector<RawPeer> queued_;
};

// A port that belongs to a socket which does not listen: a connection is refused.
class ClosedPort {
 public:
  ClosedPort() : owner_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    EXPECT_EQ(bind(owner_.fd(), reinterpret_cast<const sockaddr*>(&address_), sizeof address_), 0);
    socklen_t length = sizeof address_;
    getsockname(owner_.fd(), reinterpret_cast<sockaddr*>(&address_), &length);
  }
  [[nodiscard]] unsigned short port() const { return ntohs(address_.sin_port); }

 private:
  RawPeer owner_;
  sockaddr_in address_{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
};

inline RawPeer connect_ipv6(unsigned short port) {
  RawPeer peer(socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  address.sin6_port = htons(port);
  address.sin6_addr = in6addr_loopback;
  EXPECT_EQ(connect(peer.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0)
      << std::strerror(errno);
  return peer;
}

// Whether this machine has the IPv6 loopback address. Tests that need it are skipped
// elsewhere.
inline bool has_ipv6() {
  const RawPeer probe(socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  address.sin6_addr = in6addr_loopback;
  return bind(probe.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

// The port in an address's text.
inline unsigned short port_in(const std::string& address) {
  return static_cast<unsigned short>(std::atoi(address.substr(address.rfind(':') + 1).c_str()));
}

// The text of a socket's own IPv4 loopback address.
inline std::string loopback_text(int fd) {
  sockaddr_in local{};
  socklen_t length = sizeof local;
  EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&local), &length), 0);
  return "127.0.0.1:" + std::to_string(ntohs(local.sin_port));
}

// An integer option of a socket; -1 if it cannot be had.
inline int option(int fd, int level, int name) {
  int value = -1;
  socklen_t length = sizeof value;
  return getsockopt(fd, level, name, &value, &length) == 0 ? value : -1;
}

inline bool is_open(int fd) { return fcntl(fd, F_GETFD) != -1; }
inline bool closes_on_exec(int fd) { return fcntl(fd, F_GETFD) == FD_CLOEXEC; }
inline bool blocks(int fd) { return (fcntl(fd, F_GETFL) & O_NONBLOCK) == 0; }

// The number that the next descriptor will have.
inline int next_descriptor() {
  const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(fd);
  return fd;
}

// A sanitizer that sees an object for the first time needs a descriptor to look at it.
// Does nothing else to a closed channel.
template <typename Endpoint>
void show_to_sanitizer(Endpoint& channel) {
  channel.close();
}

// While it lives, this process can open no descriptor.
class NoDescriptors {
 public:
  NoDescriptors() {
    EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &before_), 0);
    const rlimit now{static_cast<rlim_t>(next_descriptor()), before_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &now), 0);
  }
  ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;

 private:
  rlimit before_{};
};

// Runs `body` in a process of its own, and expects it to log the very lines that it
// prints: "IPC:error|message". Lines about callbacks, which are removed whenever a
// channel is destroyed, do not count.
inline void expect_logged(const std::function<void()>& body) {
  const ChildResult result = run_in_child({{"IPC_LOGMASK", "255"}}, body);
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  Lines logged;
  for (const std::string& line : log_messages(result.err)) {
    if (line.find("->set_callback(") == std::string::npos) logged.push_back(line);
  }
  Lines printed;
  std::istringstream out(result.out);
  for (std::string line; std::getline(out, line);) printed.push_back(line);
  EXPECT_FALSE(printed.empty()) << "a test that expects no lines ends with a call that logs one";
  EXPECT_EQ(logged, printed);
}

}  // namespace zedipc::test

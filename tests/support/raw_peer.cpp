// SPDX-License-Identifier: MIT
#include "support/raw_peer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <utility>

#include "support/patience.h"

namespace zedipc::test {

namespace {

sockaddr_in ipv4(const std::string& address, unsigned short port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_port = htons(port);
  EXPECT_EQ(inet_pton(AF_INET, address.c_str(), &result.sin_addr), 1) << address;
  return result;
}

template <typename Address>
const sockaddr* generic(const Address& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

// Waits for input; false after `msec`.
bool readable(int fd, int msec) {
  pollfd pf{fd, POLLIN, 0};
  return poll(&pf, 1, msec) == 1;
}

}  // namespace

std::string word(std::uint32_t value) {
  return {static_cast<char>(value >> 24), static_cast<char>(value >> 16),
          static_cast<char>(value >> 8), static_cast<char>(value)};
}

std::string frame(std::uint32_t msg_id, std::uint32_t tag, const std::string& payload) {
  return word(msg_id) + word(static_cast<std::uint32_t>(payload.size()) + 4) + word(tag) + payload;
}

RawPeer RawPeer::connect(const std::string& address, unsigned short port, const std::string& from) {
  RawPeer peer(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!from.empty()) {
    const sockaddr_in local = ipv4(from, 0);
    EXPECT_EQ(bind(peer.fd_, generic(local), sizeof local), 0) << std::strerror(errno);
  }
  const sockaddr_in remote = ipv4(address, port);
  EXPECT_EQ(::connect(peer.fd_, generic(remote), sizeof remote), 0) << std::strerror(errno);
  const int on = 1;
  setsockopt(peer.fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return peer;
}

RawPeer RawPeer::connect_pipe(const std::string& path) {
  RawPeer peer(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  EXPECT_EQ(::connect(peer.fd_, generic(address), sizeof address), 0) << std::strerror(errno);
  return peer;
}

RawPeer::RawPeer(RawPeer&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

RawPeer& RawPeer::operator=(RawPeer&& other) noexcept {
  std::swap(fd_, other.fd_);
  return *this;
}

RawPeer::~RawPeer() { close(); }

void RawPeer::close() {
  if (fd_ != -1) ::close(std::exchange(fd_, -1));
}

void RawPeer::reset() {
  const linger hard{1, 0};
  setsockopt(fd_, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
  close();
}

void RawPeer::send(const std::string& bytes) const {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t n = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) {
      ADD_FAILURE() << "send: " << std::strerror(errno);
      return;
    }
    sent += static_cast<std::size_t>(n);
  }
}

void RawPeer::send_message(const std::string& text) const { send(frame(kNotifyFrame, 0, text)); }

std::string RawPeer::receive(std::size_t count, int msec) const {
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(patience(msec));
  std::string bytes(count, '\0');
  std::size_t have = 0;
  while (have < count) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() < 0 || !readable(fd_, static_cast<int>(left.count()))) break;
    const ssize_t n = ::recv(fd_, bytes.data() + have, count - have, 0);
    if (n <= 0) break;
    have += static_cast<std::size_t>(n);
  }
  bytes.resize(have);
  return bytes;
}

std::string RawPeer::receive_message(int msec) const {
  const std::string header = receive(12, msec);
  if (header.size() != 12) {
    EXPECT_EQ(header, "") << "a frame's header is cut off";
    return at_end(0) ? "<eof>" : "<timeout>";
  }
  EXPECT_EQ(header.substr(0, 4), word(kNotifyFrame));
  EXPECT_EQ(header.substr(8, 4), word(0));
  std::uint32_t length = 0;
  for (std::size_t i = 4; i < 8; ++i) length = length << 8 | static_cast<unsigned char>(header[i]);
  if (length < 4 || length > (1U << 26)) {
    ADD_FAILURE() << "a frame with a length word of " << length;
    return "<bad frame>";
  }
  const std::string payload = receive(length - 4, msec);
  EXPECT_EQ(payload.size(), length - 4) << "a frame's payload is cut off";
  return payload;
}

bool RawPeer::at_end(int msec) const {
  char byte;
  return readable(fd_, patience(msec)) && ::recv(fd_, &byte, 1, MSG_PEEK) <= 0;
}

bool RawPeer::silent(int msec) const { return !readable(fd_, msec); }

RawListener::RawListener(const std::string& address, unsigned short port)
    : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const int on = 1;
  setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const sockaddr_in local = ipv4(address, port);
  EXPECT_EQ(bind(fd_, generic(local), sizeof local), 0) << std::strerror(errno);
  EXPECT_EQ(listen(fd_, 128), 0) << std::strerror(errno);
}

RawListener::~RawListener() { close(); }

void RawListener::close() {
  if (fd_ != -1) ::close(std::exchange(fd_, -1));
}

RawPeer RawListener::accept(int msec) const {
  if (!readable(fd_, patience(msec))) return RawPeer();
  return RawPeer(accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC));
}

unsigned short RawListener::port() const {
  sockaddr_in local{};
  socklen_t length = sizeof local;
  getsockname(fd_, reinterpret_cast<sockaddr*>(&local), &length);
  return ntohs(local.sin_port);
}

}  // namespace zedipc::test

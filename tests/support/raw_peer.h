// SPDX-License-Identifier: MIT
// The other end of a connection, played by hand with bytes and frames. None of the
// library's code is used, so that both sides of a test cannot share a mistake.
#pragma once

#include <cstdint>
#include <string>

namespace zedipc::test {

inline constexpr std::uint32_t kNotifyFrame = 0x4E4659;
inline constexpr unsigned short kNotifyPort = 5899;

// A 32-bit word, most significant byte first.
std::string word(std::uint32_t value);

// A whole frame.
std::string frame(std::uint32_t msg_id, std::uint32_t tag, const std::string& payload);

class RawPeer {
 public:
  // Connects to a TCP server, from the address `from` if that is given: a peer that
  // comes from 127.0.0.2 is a remote one to the notification server.
  static RawPeer connect(const std::string& address = "127.0.0.1",
                         unsigned short port = kNotifyPort, const std::string& from = "");
  static RawPeer connect_pipe(const std::string& path);

  explicit RawPeer(int fd = -1) : fd_(fd) {}
  RawPeer(RawPeer&& other) noexcept;
  RawPeer& operator=(RawPeer&& other) noexcept;
  ~RawPeer();

  [[nodiscard]] bool connected() const { return fd_ != -1; }
  [[nodiscard]] int fd() const { return fd_; }

  void send(const std::string& bytes) const;
  // Sends one notification message as a frame.
  void send_message(const std::string& text) const;

  // The next `count` bytes; fewer at the end of the stream or after `msec`.
  [[nodiscard]] std::string receive(std::size_t count, int msec = 10000) const;
  // The text of the next notification frame, whose header is checked byte by byte. At
  // the end of the stream "<eof>", after `msec` "<timeout>".
  [[nodiscard]] std::string receive_message(int msec = 10000) const;

  // Whether the stream ends here, within `msec`.
  [[nodiscard]] bool at_end(int msec = 10000) const;
  // Whether nothing has come within `msec`.
  [[nodiscard]] bool silent(int msec) const;

  // Ends the connection by a reset instead of an orderly end.
  void reset();
  void close();

 private:
  int fd_;
};

// A listening socket.
class RawListener {
 public:
  // Fails the test if the address cannot be had. A port of 0 is chosen by the system.
  explicit RawListener(const std::string& address = "127.0.0.1", unsigned short port = kNotifyPort);
  ~RawListener();
  RawListener(const RawListener&) = delete;
  RawListener& operator=(const RawListener&) = delete;

  // The next peer, which is not connected() if none came within `msec`.
  [[nodiscard]] RawPeer accept(int msec = 10000) const;
  [[nodiscard]] unsigned short port() const;
  void close();

 private:
  int fd_;
};

}  // namespace zedipc::test

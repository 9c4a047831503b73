// SPDX-License-Identifier: MIT
// What the harnesses of server and client share: both play the other side of a
// connection by an input that consists of lines, and look at what is written to it.
#pragma once

#include <zedipc/jsobject.h>
#include <zedipc/tcp.h>

#include <string>
#include <vector>

namespace zedipc::test {

// A connection from `remote_addr` over the socket `fd`, which it takes over.
class PlayedChannel : public TCP {
 public:
  PlayedChannel(int fd, const std::string& remote_addr);

  // What is written goes to `record`, so that nobody has to read it. Null: it goes to the
  // socket.
  void record_to(std::string* record) { record_ = record; }
  bool write(const void* data, int size) override;

 private:
  std::string* record_ = nullptr;
};

// The bytes that are sent for the line of an input, by its first letter:
//   h  a header with the length word that follows, and no payload
//   m  a frame with the message that follows
//   r  just the bytes that follow
// For any other they are none.
std::string bytes_of(const std::string& line);

// The messages in what was recorded, which has to consist of whole notification frames.
std::vector<std::string> messages_in(const std::string& record);

// A member as a text, as the protocol has it read; it stands in the message then.
std::string member(JSObject& message, const char* key);

}  // namespace zedipc::test

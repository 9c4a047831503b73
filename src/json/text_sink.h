// SPDX-License-Identifier: MIT
// Appends text to a string. It gathers on the stack first, so that a short text costs
// one allocation of the right size, and a long one only a few.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>

namespace zedipc {

class TextSink {
 public:
  // The most that `room` can give at once.
  static constexpr std::size_t kRoom = 1024;

  explicit TextSink(std::string& out) : out_(out) {}
  TextSink(const TextSink&) = delete;
  TextSink& operator=(const TextSink&) = delete;

  // Gives a place for `size` bytes; tell `advance` how far it was filled.
  char* room(std::size_t size) {
    if (static_cast<std::size_t>(buffer_ + sizeof buffer_ - end_) < size) flush();
    return end_;
  }
  void advance(char* end) { end_ = end; }

  template <std::size_t kSize>
  void put(const char (&text)[kSize]) {
    constexpr std::size_t kLength = kSize - 1;
    char* const to = room(kLength);
    std::memcpy(to, text, kLength);
    advance(to + kLength);
  }

  void put(char byte) {
    char* const to = room(1);
    *to = byte;
    advance(to + 1);
  }

  // Appends what has gathered. Without a last call the text is cut off.
  void flush() {
    out_.append(buffer_, static_cast<std::size_t>(end_ - buffer_));
    end_ = buffer_;
  }

 private:
  std::string& out_;
  char* end_ = buffer_;
  char buffer_[2 * kRoom];  // filled up to `end_`
};

}  // namespace zedipc

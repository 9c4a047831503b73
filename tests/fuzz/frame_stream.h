// SPDX-License-Identifier: MIT
// A second, plain way to find the frames of a stream, to compare the library with: it
// has the whole stream before it, and knows nothing of the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

namespace zedipc::test {

inline constexpr std::size_t kNotifyLimit = 524288;

class FrameStream {
 public:
  // What a reader gets from one call.
  struct Result {
    bool whole = false;     // a whole frame
    bool has_tag = false;   // the header was accepted
    bool ended = false;     // it met the end of the stream
    bool in_frame = false;  // it had taken bytes when it met the end or a silence
    std::uint32_t tag = 0;  // if has_tag
    std::string payload;    // zeros where it was cut short
  };

  // At each offset in `silences`, which are ascending, the peer makes its reader wait in
  // vain once.
  explicit FrameStream(std::string bytes, std::deque<std::size_t> silences = {});

  Result next(std::uint32_t msg_id, std::size_t size_limit);

 private:
  // The next byte; false at the end or at a silence.
  bool take(Result& result, char& byte);
  bool take_header(Result& result, std::uint32_t msg_id, std::string& header);

  std::string bytes_;
  std::deque<std::size_t> silences_;
  std::size_t at_ = 0;
};

// Whether a reader of notification frames, behind these bytes, is waiting for the rest of
// something.
bool ends_inside_a_frame(const std::string& bytes);

}  // namespace zedipc::test

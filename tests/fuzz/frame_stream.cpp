// SPDX-License-Identifier: MIT
#include "fuzz/frame_stream.h"

#include <utility>

#include "support/raw_peer.h"

namespace zedipc::test {

namespace {

constexpr std::size_t kHeader = 12;

std::uint32_t word_at(const std::string& bytes, std::size_t offset) {
  std::uint32_t result = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    result = result * 256 + static_cast<unsigned char>(bytes[offset + i]);
  }
  return result;
}

}  // namespace

FrameStream::FrameStream(std::string bytes, std::deque<std::size_t> silences)
    : bytes_(std::move(bytes)), silences_(std::move(silences)) {}

bool FrameStream::take(Result& result, char& byte) {
  if (!silences_.empty() && silences_.front() == at_) {
    silences_.pop_front();
    return false;
  }
  if (at_ == bytes_.size()) {
    result.ended = true;
    return false;
  }
  result.in_frame = true;
  byte = bytes_[at_++];
  return true;
}

bool FrameStream::take_header(Result& result, std::uint32_t msg_id, std::string& header) {
  while (header.size() < kHeader || word_at(header, 0) != msg_id) {
    if (header.size() == kHeader) header.erase(0, 1);
    char byte = 0;
    if (!take(result, byte)) return false;
    header += byte;
  }
  return true;
}

FrameStream::Result FrameStream::next(std::uint32_t msg_id, std::size_t size_limit) {
  Result result;
  std::string header;
  if (!take_header(result, msg_id, header)) return result;
  const std::uint32_t length = word_at(header, 4);
  if (length < 4 || length > 0x7FFFFFFF || length - 4 > size_limit) return result;
  result.has_tag = true;
  result.tag = word_at(header, 8);
  result.payload.resize(length - 4);
  for (char& byte : result.payload) {
    if (!take(result, byte)) return result;
  }
  result.whole = true;
  return result;
}

bool ends_inside_a_frame(const std::string& bytes) {
  FrameStream stream(bytes);
  for (;;) {
    const FrameStream::Result result = stream.next(kNotifyFrame, kNotifyLimit);
    if (result.ended) return result.in_frame;
  }
}

}  // namespace zedipc::test

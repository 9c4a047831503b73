// SPDX-License-Identifier: MIT
#include "fuzz/notify_script.h"

#include <cstdio>
#include <cstdlib>

#include "fuzz/frame_stream.h"
#include "fuzz/harness.h"
#include "ipc/ipc_private.h"
#include "support/raw_peer.h"

namespace zedipc::test {

PlayedChannel::PlayedChannel(int fd, const std::string& remote_addr) {
  setFD(fd);
  std::snprintf(d->remote_addr, sizeof d->remote_addr, "%s", remote_addr.c_str());
}

bool PlayedChannel::write(const void* data, int size) {
  if (record_ == nullptr) return TCP::write(data, size);
  record_->append(static_cast<const char*>(data), static_cast<std::size_t>(size));
  return true;
}

std::string bytes_of(const std::string& line) {
  const char letter = line.empty() ? '\0' : line[0];
  switch (letter) {
    case 'h':
      return word(kNotifyFrame) +
             word(static_cast<std::uint32_t>(std::strtoul(line.c_str() + 1, nullptr, 0))) + word(0);
    case 'm':
      return frame(kNotifyFrame, 0, line.substr(1));
    case 'r':
      return line.substr(1);
    default:
      return "";
  }
}

std::vector<std::string> messages_in(const std::string& record) {
  std::vector<std::string> messages;
  std::string whole;
  FrameStream stream(record);
  for (;;) {
    const FrameStream::Result result = stream.next(kNotifyFrame, record.size());
    if (!result.whole) break;
    messages.push_back(result.payload);
    whole += frame(kNotifyFrame, 0, result.payload);
  }
  require(whole == record, "nothing but whole frames is written");
  return messages;
}

std::string member(JSObject& message, const char* key) { return message(key).getString(); }

}  // namespace zedipc::test

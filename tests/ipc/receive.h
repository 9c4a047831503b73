// SPDX-License-Identifier: MIT
#pragma once

#include <zedipc/ipc.h>

#include <string>

namespace zedipc::test {

inline constexpr unsigned kId = 0x51A7F00D;

// Receives one frame, as "7:payload" with its tag; "false" if there is none, in which
// case the payload has to be empty and the tag untouched.
inline std::string receive(IPC& channel, int timeout_msec = 10000, int size_limit = 1000000,
                           unsigned msg_id = kId) {
  std::string payload = "old";
  int tag = 123456;
  if (channel.read_msg(msg_id, tag, payload, size_limit, timeout_msec)) {
    return std::to_string(tag) + ":" + payload;
  }
  return payload.empty() && tag == 123456 ? "false"
                                          : "false, with " + std::to_string(tag) + ":" + payload;
}

}  // namespace zedipc::test

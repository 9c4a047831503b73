// SPDX-License-Identifier: MIT
#include "failing_frames.h"

#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <cstring>

namespace zedipc::test {

namespace {

std::atomic<int> frames_to_pass{0};
std::atomic<int> frames_to_fail{0};

// The library sends a frame's header by itself.
bool is_header(const void* data, size_t size) {
  return size == 12 && std::memcmp(data, "\0NFY", 4) == 0;
}

}  // namespace

void fail_frames(int let_pass, int count) {
  frames_to_pass = let_pass;
  frames_to_fail = count;
}

}  // namespace zedipc::test

extern "C" ssize_t send(int fd, const void* data, size_t size, int flags) {
  using namespace zedipc::test;
  if (frames_to_fail > 0 && is_header(data, size) && frames_to_pass-- <= 0) {
    --frames_to_fail;
    errno = ENOBUFS;
    return -1;
  }
  return sendto(fd, data, size, flags, nullptr, 0);
}

// SPDX-License-Identifier: MIT
// The checked forms of these functions would stand in the way of our own.
#undef _FORTIFY_SOURCE

#include "ipc/wake_up_calls.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "support/next_function.h"

namespace zedipc::test {

namespace {

// Calls that fail instead of being made.
struct Failures {
  std::atomic<int> left{0};
  std::atomic<int> fd{-1};

  void expect(int descriptor, int count) {
    fd = descriptor;
    left = count;
  }
  // Whether this call is one of them.
  bool take(int descriptor) {
    if (descriptor != fd) return false;
    int before = left;
    while (before > 0 && !left.compare_exchange_weak(before, before - 1)) {
    }
    return before > 0;
  }
};

constexpr int kAnyPipe = -2;

Failures pipes;
std::atomic<int> pipe_error{0};
std::atomic<int> pipe_count{0};
Failures reads;
Failures writes;

int fail(int error) {
  errno = error;
  return -1;
}

}  // namespace

void fail_pipes(int count, int error) {
  pipe_error = error;
  pipes.expect(kAnyPipe, count);
}
int pipe_calls() { return pipe_count; }
void interrupt_reads(int fd, int count) { reads.expect(fd, count); }
void interrupt_writes(int fd, int count) { writes.expect(fd, count); }
int interruptions_left() { return reads.left + writes.left; }

}  // namespace zedipc::test

using namespace zedipc::test;

extern "C" int pipe2(int* ends, int flags) noexcept {
  static const auto real = next<int (*)(int*, int)>("pipe2");
  ++pipe_count;
  return pipes.take(kAnyPipe) ? fail(pipe_error) : real(ends, flags);
}

extern "C" ssize_t read(int fd, void* data, size_t size) {
  static const auto real = next<ssize_t (*)(int, void*, size_t)>("read");
  return reads.take(fd) ? fail(EINTR) : real(fd, data, size);
}

extern "C" ssize_t write(int fd, const void* data, size_t size) {
  static const auto real = next<ssize_t (*)(int, const void*, size_t)>("write");
  return writes.take(fd) ? fail(EINTR) : real(fd, data, size);
}

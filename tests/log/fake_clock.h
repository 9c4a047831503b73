// SPDX-License-Identifier: MIT
// The monotonic clock, held at a time of the test's choice.
#pragma once

#include <time.h>

#include <cstdint>

namespace zedipc::test {

// While one exists, the program's clock_gettime(CLOCK_MONOTONIC) gives this time.
class FakeClock {
 public:
  FakeClock(std::int64_t seconds, long nanoseconds);
  ~FakeClock();
  FakeClock(const FakeClock&) = delete;
  FakeClock& operator=(const FakeClock&) = delete;

  // Has it fail instead, leaving the time that it was given as it was.
  static void fail();
};

}  // namespace zedipc::test

// SPDX-License-Identifier: MIT
#include "log/fake_clock.h"

#include <cerrno>

#include "support/next_function.h"

namespace {

enum class Clock { kReal, kHeld, kBroken };

// Set and read by the one thread of a test.
thread_local Clock clock_state = Clock::kReal;
thread_local timespec held;

using ClockGettime = int (*)(clockid_t, timespec*);

}  // namespace

extern "C" int clock_gettime(clockid_t id, timespec* now) noexcept {
  static const auto real = zedipc::test::next<ClockGettime>("clock_gettime");
  if (id != CLOCK_MONOTONIC || clock_state == Clock::kReal) return real(id, now);
  if (clock_state == Clock::kBroken) {
    errno = EINVAL;
    return -1;
  }
  *now = held;
  return 0;
}

namespace zedipc::test {

FakeClock::FakeClock(std::int64_t seconds, long nanoseconds) {
  held.tv_sec = static_cast<time_t>(seconds);
  held.tv_nsec = nanoseconds;
  clock_state = Clock::kHeld;
}

FakeClock::~FakeClock() { clock_state = Clock::kReal; }

void FakeClock::fail() { clock_state = Clock::kBroken; }

}  // namespace zedipc::test

// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <thread>

namespace zedipc::test {

// Time, where it is the behaviour.
class Stopwatch {
 public:
  [[nodiscard]] long msec() const {
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                 std::chrono::steady_clock::now() - start_)
                                 .count());
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

inline void pause(int msec) { std::this_thread::sleep_for(std::chrono::milliseconds(msec)); }

}  // namespace zedipc::test

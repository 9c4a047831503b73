// SPDX-License-Identifier: MIT
// What the stress tests share: their amounts, a guard against hanging, and threads that
// work at the same time.
#pragma once

#include <unistd.h>

#include <functional>
#include <random>
#include <thread>
#include <vector>

namespace zedipc::test {

// How often to do something. What is built with instruments takes longer, and a sanitizer
// does not need a collision to find a race. An emulator is slow too.
inline constexpr int amount(int wanted) {
#if defined(ZEDIPC_INSTRUMENTED) || defined(EMULATED)
  return (wanted + 9) / 10;
#else
  return wanted;
#endif
}

// Ends the process if a test hangs.
class HangGuard {
 public:
  explicit HangGuard(unsigned seconds = 50) { alarm(seconds); }
  ~HangGuard() { alarm(0); }
  HangGuard(const HangGuard&) = delete;
  HangGuard& operator=(const HangGuard&) = delete;
};

// Choices that are the same each time.
class Random {
 public:
  explicit Random(int seed) : engine_(static_cast<unsigned>(seed) + 1) {}
  int below(int n) { return static_cast<int>(engine_() % static_cast<unsigned>(n)); }
  bool one_in(int n) { return below(n) == 0; }

 private:
  std::minstd_rand engine_;
};

// Threads that do the same work, each with a number and choices of its own. Their end is
// waited for.
class Crew {
 public:
  using Work = std::function<void(int worker, Random& random)>;

  Crew(int size, const Work& work) {
    for (int i = 0; i < size; ++i) {
      threads_.emplace_back([work, i] {
        Random random(i);
        work(i, random);
      });
    }
  }
  ~Crew() { join(); }
  Crew(const Crew&) = delete;
  Crew& operator=(const Crew&) = delete;

  void join() {
    for (std::thread& thread : threads_) {
      if (thread.joinable()) thread.join();
    }
  }

 private:
  std::vector<std::thread> threads_;
};

}  // namespace zedipc::test

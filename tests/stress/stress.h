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

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif
#else
inline constexpr bool kSanitized = false;
#endif

// How often to do something: a sanitizer makes everything take longer, and does not need
// a collision to find a race.
inline constexpr int amount(int wanted) { return kSanitized ? (wanted + 9) / 10 : wanted; }

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

// SPDX-License-Identifier: MIT
// Processes that end by exit() while their threads work.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <deque>
#include <functional>
#include <thread>

#include "support/child.h"

namespace zedipc::test {

enum class ExitFrom { kMain, kCallback };

// The end of a process, which comes when its callbacks have been called so many times
// after its main thread was ready for it: that thread may not be using a static object
// any more.
class Ending {
 public:
  Ending(ExitFrom from, int after) : from_(from), after_(after) {}

  // For callbacks: counts a call, and ends the process if that is their part.
  void called() {
    if (!ready_) return;
    if (++calls_ == after_ && from_ == ExitFrom::kCallback) leave();
  }
  // For the main thread: ends the process, or waits for its end.
  [[noreturn]] void wait() {
    ready_ = true;
    if (from_ == ExitFrom::kMain) {
      EXPECT_TRUE(eventually([this] { return calls_ >= after_; }));
      leave();
    }
    for (;;) pause();
  }

 private:
  [[noreturn]] static void leave() { std::exit(::testing::Test::HasFailure() ? 1 : 0); }

  const ExitFrom from_;
  const int after_;
  std::atomic<bool> ready_{false};
  std::atomic<int> calls_{0};
};

// A thread that works until the process has gone.
inline void run_for_ever(const std::function<void()>& step) {
  std::thread([step] {
    for (;;) step();
  }).detach();
}

// Runs so many processes, some at a time. `body` does not return; it gets a number that
// says how many calls of callbacks are to be waited for.
inline void expect_clean_exits(int count, std::size_t at_a_time,
                               const std::function<void(int after)>& body) {
  std::deque<Child> running;
  const auto expect_end = [&] {
    Child& child = running.front();
    ASSERT_EQ(child.wait(), 0) << child.out() << child.err();
    running.pop_front();
  };
  for (int i = 0; i < count; ++i) {
    if (running.size() == at_a_time) {
      ASSERT_NO_FATAL_FAILURE(expect_end());
    }
    running.emplace_back(Environment{}, [&] {
      body(1 + i % 20);
      ADD_FAILURE() << "the process did not end";
    });
  }
  while (!running.empty()) ASSERT_NO_FATAL_FAILURE(expect_end());
}

}  // namespace zedipc::test

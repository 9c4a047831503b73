// SPDX-License-Identifier: MIT
// Threads of which it is known when they wait.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <utility>

#include "support/child.h"

namespace zedipc::test {

// A call on a thread of its own. Its end is waited for.
class Task {
 public:
  explicit Task(std::function<int()> call)
      : thread_([this, call = std::move(call)] {
          id_ = gettid();
          result_ = call();
          id_ = -1;
        }) {}
  ~Task() {
    if (thread_.joinable()) thread_.join();
  }
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;

  // Waits until the thread sleeps, as it does while it waits for a lock; false if it does
  // not within `msec`.
  [[nodiscard]] bool blocked(int msec = 10000) const {
    int times = 0;
    return eventually([&] { return (times = sleeps() ? times + 1 : 0) == 10; }, msec);
  }

  [[nodiscard]] bool running() const { return id_ != -1; }

  int result() {
    thread_.join();
    return result_;
  }

 private:
  [[nodiscard]] bool sleeps() const {
    if (id_ <= 0) return false;
    std::ifstream file("/proc/self/task/" + std::to_string(id_) + "/stat");
    std::string text;
    std::getline(file, text);  // of a thread that has just gone there is none
    const std::size_t name_end = text.rfind(") ");
    return name_end != std::string::npos && text[name_end + 2] == 'S';
  }

  std::atomic<pid_t> id_{0};  // 0 before the call, -1 after it
  int result_ = 0;
  std::thread thread_;  // the last member: it uses the others
};

// Does something again and again on a thread of its own, as long as it lives.
class Repeat {
 public:
  explicit Repeat(const std::function<void()>& action)
      : thread_([this, action] {
          while (!stop_) action();
        }) {}
  ~Repeat() {
    stop_ = true;
    thread_.join();
  }
  Repeat(const Repeat&) = delete;
  Repeat& operator=(const Repeat&) = delete;

 private:
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

// The number of this process's threads.
inline int thread_count() {
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return static_cast<int>(std::distance(begin(tasks), end(tasks)));
}

}  // namespace zedipc::test

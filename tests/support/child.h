// SPDX-License-Identifier: MIT
// Code run in a process of its own, with an environment of its own, whose output and
// end can be looked at. What is settled once per process (the log's masks, the client,
// the server) is tested this way.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>

namespace zedipc::test {

// Set in a child that ends by exit, which unloads libraries, and not by _exit.
inline constexpr char kEndsByExit[] = "ENDS_BY_EXIT";

using Environment = std::map<std::string, std::string>;

// A process forked from this one. To be made while this process has one thread. It is
// killed, if it still runs, when the object goes.
class Child {
 public:
  // Runs `body`, then ends with status 0, or 1 if a gtest expectation failed in it.
  // Of the library's variables only those in `environment` are set.
  Child(const Environment& environment, const std::function<void()>& body);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }

  // What the process has written so far.
  [[nodiscard]] std::string out() const;
  [[nodiscard]] std::string err() const;

  // Waits until standard error holds `text`; false after 10 seconds.
  [[nodiscard]] bool wait_for_err(const std::string& text) const;

  void kill(int signal);

  // Waits for the end: the exit status, or 128 and the number of a signal. A child that
  // runs on for `seconds` is killed.
  int wait(int seconds = 30);

 private:
  pid_t pid_;
  int out_fd_;
  int err_fd_;
  int status_ = 0;
};

struct ChildResult {
  int status;
  std::string out;
  std::string err;
};

// Runs `body` in a child and waits for its end.
ChildResult run_in_child(const Environment& environment, const std::function<void()>& body);

// Calls `condition` until it gives true; false if that takes more than `msec`.
bool eventually(const std::function<bool()>& condition, int msec = 10000);

}  // namespace zedipc::test

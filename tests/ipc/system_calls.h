// SPDX-License-Identifier: MIT
// The kernel's answers about one descriptor, where a test cannot have it give them. A
// program that is built with system_calls.cpp makes poll, recv, send and close itself.
#pragma once

#include <poll.h>

#include <functional>
#include <vector>

namespace zedipc::test {

// What a call gives instead of being made.
struct Answer {
  int result = 0;
  int error = 0;                      // errno, where the result is -1
  short revents = 0;                  // of poll
  std::function<void()> meanwhile{};  // what happens during the call
};

// Poll's answer when there is something to read.
inline const Answer kReadable = {1, 0, POLLIN};

using Timeouts = std::vector<int>;  // milliseconds

// Watches, and answers, the calls on one descriptor. One at a time; calls on the
// descriptor have to come from one thread, except for close.
class SystemCalls {
 public:
  explicit SystemCalls(int fd);
  ~SystemCalls();
  SystemCalls(const SystemCalls&) = delete;
  SystemCalls& operator=(const SystemCalls&) = delete;

  // The next calls, in turn, are answered thus; later ones are made.
  void answer_poll(const std::vector<Answer>& answers);
  void answer_recv(const std::vector<Answer>& answers);
  void answer_send(const std::vector<Answer>& answers);

  // The timeouts of all calls of poll so far.
  [[nodiscard]] Timeouts poll_timeouts() const;
  // How many calls there were, answered ones included.
  [[nodiscard]] int recv_calls() const;
  [[nodiscard]] int send_calls() const;
  [[nodiscard]] int close_calls() const;
};

}  // namespace zedipc::test

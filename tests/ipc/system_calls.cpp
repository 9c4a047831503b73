// SPDX-License-Identifier: MIT
// The checked forms of these functions would stand in the way of our own.
#undef _FORTIFY_SOURCE

#include "ipc/system_calls.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <deque>

#include "support/next_function.h"

namespace zedipc::test {

namespace {

using Answers = std::deque<Answer>;

std::atomic<int> watched{-1};
Answers poll_answers;
Answers recv_answers;
Answers send_answers;
std::vector<int> timeouts;
int recv_count = 0;
int send_count = 0;
std::atomic<int> close_count{0};

void add(Answers& answers, const std::vector<Answer>& more) {
  answers.insert(answers.end(), more.begin(), more.end());
}

int give(Answers& answers, short* revents) {
  const Answer answer = answers.front();
  answers.pop_front();
  if (answer.meanwhile) answer.meanwhile();
  if (revents != nullptr) *revents = answer.revents;
  errno = answer.error;
  return answer.result;
}

}  // namespace

SystemCalls::SystemCalls(int fd) {
  timeouts.clear();
  recv_count = send_count = close_count = 0;
  watched = fd;
}

SystemCalls::~SystemCalls() {
  watched = -1;
  poll_answers.clear();
  recv_answers.clear();
  send_answers.clear();
}

void SystemCalls::answer_poll(const std::vector<Answer>& answers) { add(poll_answers, answers); }
void SystemCalls::answer_recv(const std::vector<Answer>& answers) { add(recv_answers, answers); }
void SystemCalls::answer_send(const std::vector<Answer>& answers) { add(send_answers, answers); }

std::vector<int> SystemCalls::poll_timeouts() const { return timeouts; }
int SystemCalls::recv_calls() const { return recv_count; }
int SystemCalls::send_calls() const { return send_count; }
int SystemCalls::close_calls() const { return close_count; }

}  // namespace zedipc::test

using namespace zedipc::test;

extern "C" int poll(pollfd* fds, nfds_t count, int timeout) {
  static const auto real = next<int (*)(pollfd*, nfds_t, int)>("poll");
  if (count != 1 || fds->fd != watched || watched == -1) return real(fds, count, timeout);
  timeouts.push_back(timeout);
  if (poll_answers.empty()) return real(fds, count, timeout);
  return give(poll_answers, &fds->revents);
}

extern "C" ssize_t recv(int fd, void* data, size_t size, int flags) {
  static const auto real = next<ssize_t (*)(int, void*, size_t, int)>("recv");
  if (fd != watched) return real(fd, data, size, flags);
  ++recv_count;
  if (recv_answers.empty()) return real(fd, data, size, flags);
  return give(recv_answers, nullptr);
}

extern "C" ssize_t send(int fd, const void* data, size_t size, int flags) {
  static const auto real = next<ssize_t (*)(int, const void*, size_t, int)>("send");
  if (fd != watched) return real(fd, data, size, flags);
  ++send_count;
  if (send_answers.empty()) return real(fd, data, size, flags);
  return give(send_answers, nullptr);
}

extern "C" int close(int fd) {
  static const auto real = next<int (*)(int)>("close");
  if (fd == watched && fd != -1) ++close_count;
  return real(fd);
}

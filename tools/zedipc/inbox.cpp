// SPDX-License-Identifier: MIT
// The queue between the library's threads and the command's own, and its wake-up.
#include "zedipc/inbox.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

#include "zedipc/output.h"

namespace command {

namespace {

std::atomic<bool> end_wanted{false};
std::atomic<int> signal_fd{-1};

void wake_reader_of(int fd) {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t count = write(fd, &one, sizeof one);
}

extern "C" void note_signal(int /*signal*/) {
  const int saved = errno;
  end_wanted = true;
  wake_reader_of(signal_fd);
  errno = saved;
}

int milliseconds_until(Clock::time_point until) {
  using Milliseconds = std::chrono::milliseconds;
  if (until == Clock::time_point::max()) return -1;
  // Rounded up, so that poll() does not return a moment too early.
  const auto left = std::chrono::duration_cast<Milliseconds>(until - Clock::now()).count() + 1;
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, std::numeric_limits<int>::max()));
}

Message message(const std::string& from, const std::string& to, const std::string& notification,
                unsigned int flags) {
  Message result;
  result.from = from;
  result.to = to;
  result.notification = notification;
  result.flags = flags;
  result.arrived = Clock::now();
  result.time = std::chrono::system_clock::now();
  return result;
}

Message message(const std::string& from, const std::string& to, const std::string& notification,
                unsigned int flags, const zedipc::JSObject& parameter) {
  Message result = message(from, to, notification, flags);
  result.parameter = parameter;
  result.has_parameter = true;
  return result;
}

}  // namespace

Inbox::Inbox() : wake_fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (wake_fd_ == -1) throw Failure(std::string("cannot wait: ") + std::strerror(errno));
}

Inbox& Inbox::instance() {
  static Inbox& inbox = *new Inbox;
  return inbox;
}

void Inbox::on_notification(void* data, const std::string& from, const std::string& to,
                            const std::string& notification, const zedipc::JSObject& parameter,
                            unsigned int flags) {
  static_cast<Inbox*>(data)->push(message(from, to, notification, flags, parameter));
}

void Inbox::on_refusal(void* data, const std::string& from, const std::string& to,
                       const std::string& notification, const zedipc::JSObject& parameter,
                       unsigned int flags) {
  Message refused = message(from, to, notification, flags, parameter);
  refused.refused = true;
  static_cast<Inbox*>(data)->push(std::move(refused));
}

void Inbox::on_delivery(void* data, const std::string& from, const std::string& to,
                        const std::string& notification, unsigned int flags) {
  static_cast<Inbox*>(data)->push(message(from, to, notification, flags));
}

void Inbox::push(Message message) {
  {
    const std::lock_guard<std::mutex> guard(lock_);
    messages_.push_back(std::move(message));
  }
  wake_reader_of(wake_fd_);
}

void Inbox::wake() {
  woken_ = true;
  wake_reader_of(wake_fd_);
}

void Inbox::catch_signals() const {
  signal_fd = wake_fd_;
  struct sigaction action {};
  action.sa_handler = note_signal;
  action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction before {};
    sigaction(signal, nullptr, &before);
    if (before.sa_handler != SIG_IGN) sigaction(signal, &action, nullptr);
  }
}

bool Inbox::asked_to_end() { return end_wanted; }

bool Inbox::has_input() {
  pollfd waited{STDIN_FILENO, POLLIN, 0};
  return poll(&waited, 1, 0) > 0;
}

std::optional<Message> Inbox::take() {
  const std::lock_guard<std::mutex> guard(lock_);
  if (messages_.empty()) return std::nullopt;
  Message first = std::move(messages_.front());
  messages_.pop_front();
  return first;
}

std::optional<Message> Inbox::wait(Clock::time_point until) {
  for (;;) {
    if (asked_to_end()) return std::nullopt;
    if (auto message = take()) return message;
    if (woken_.exchange(false)) return std::nullopt;
    // Output needs no event: POLLERR and POLLHUP come unasked.
    pollfd waited[] = {{wake_fd_, POLLIN, 0},
                       {watches_output_ ? STDOUT_FILENO : -1, 0, 0},
                       {watches_input_ ? STDIN_FILENO : -1, POLLIN, 0}};
    const int count = poll(waited, 3, milliseconds_until(until));
    if (count > 0 && waited[1].revents != 0) throw OutputClosed();
    if (count == 0 || (count > 0 && waited[2].revents != 0)) return std::nullopt;
    std::uint64_t wakes;
    [[maybe_unused]] const ssize_t bytes = read(wake_fd_, &wakes, sizeof wakes);
  }
}

}  // namespace command

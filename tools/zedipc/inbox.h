// SPDX-License-Identifier: MIT
// Where the library's callbacks, on their own threads, leave what arrives, and where the
// command waits for it, for Ctrl-C and for the end of its reader.
#pragma once

#include <zedipc/jsobject.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <mutex>
#include <optional>
#include <string>

namespace command {

using Clock = std::chrono::steady_clock;

// A notification that has arrived.
struct Message {
  std::string from;
  std::string to;
  std::string notification;
  zedipc::JSObject parameter;
  unsigned int flags = 0;
  bool refused = false;        // it is this process's own, and nobody took it
  bool has_parameter = false;  // an observer sees none
  Clock::time_point arrived;
  std::chrono::system_clock::time_point time;
};

class Inbox {
 public:
  // The only inbox of the process. It is never destroyed, since callbacks may run until the
  // process ends.
  static Inbox& instance();

  // Callbacks of the library; `data` is the inbox.
  static void on_notification(void* data, const std::string& from, const std::string& to,
                              const std::string& notification, const zedipc::JSObject& parameter,
                              unsigned int flags);
  static void on_refusal(void* data, const std::string& from, const std::string& to,
                         const std::string& notification, const zedipc::JSObject& parameter,
                         unsigned int flags);
  static void on_delivery(void* data, const std::string& from, const std::string& to,
                          const std::string& notification, unsigned int flags);

  // From now on SIGINT, SIGTERM and SIGHUP end the wait instead of the process; a second
  // one ends the process. Calls of the library keep waiting, and connecting can take
  // minutes.
  void catch_signals() const;

  // The next message. None after `until`, once the command is asked to end, after wake(),
  // and when input arrives that is watched for. Throws OutputClosed when the reader of
  // standard output has gone.
  std::optional<Message> wait(Clock::time_point until);

  // Whether a signal has asked the command to end.
  static bool asked_to_end();

  // From now on the command outlives the reader of standard output.
  void ignore_output() { watches_output_ = false; }

  // Whether standard input ends the wait too, by input or by its end.
  void watch_input(bool watch) { watches_input_ = watch; }
  // Whether standard input can be read without a wait.
  static bool has_input();

  // Ends the wait.
  void wake();

 private:
  Inbox();
  void push(Message message);
  std::optional<Message> take();

  int wake_fd_;
  std::atomic<bool> woken_{false};
  bool watches_output_ = true;
  bool watches_input_ = false;
  std::mutex lock_;
  std::deque<Message> messages_;
};

}  // namespace command

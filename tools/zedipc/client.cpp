// SPDX-License-Identifier: MIT
// Where the server is, what a failed call means in words, and waiting for the server.
#include "zedipc/client.h"

#include <fcntl.h>
#include <unistd.h>
#include <zedipc/notify.h>
#include <zedipc/tcp.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <mutex>

#include "zedipc/inbox.h"
#include "zedipc/output.h"
#include "zedipc/text.h"

namespace command {

namespace {

constexpr char kHandled[] = "zedipc.handled";
// An answer is lost with a server that ends; the next server is asked again.
constexpr std::chrono::seconds kBetweenQuestions{1};

// Questions are numbered, since an answer can come late.
class Answer {
 public:
  Answer() { zedipc::ipcRegisterUnicastError(on_refusal, this); }
  ~Answer() { zedipc::ipcUnregisterUnicastError(on_refusal, this); }
  Answer(const Answer&) = delete;
  Answer& operator=(const Answer&) = delete;

  bool came(int number, Clock::time_point until) {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_until(guard, until, [&] { return number_ == number; });
  }

 private:
  static void on_refusal(void* data, const std::string& /*from*/, const std::string& to,
                         const std::string& notification, const zedipc::JSObject& parameter,
                         unsigned int /*flags*/) {
    if (notification == kHandled && to == private_name("nobody")) {
      static_cast<Answer*>(data)->note(parameter.getInt());
    }
  }

  void note(int number) {
    const std::lock_guard<std::mutex> guard(lock_);
    number_ = number;
    changed_.notify_all();
  }

  std::mutex lock_;
  std::condition_variable changed_;
  int number_ = 0;
};

}  // namespace

std::string server_host() {
  const char* const host = std::getenv("NOTIFY_SERVER");
  return host != nullptr ? host : "127.0.0.1";
}

std::string reason(int result) {
  const std::string host = printable(server_host());
  switch (result) {
    case zedipc::kNotifyNotConnected:
      return "no notification server answers at " + host +
             ", port 5899. Start one with 'zedipc serve', or name its host with --server HOST.";
    case zedipc::kNotifyRemoteObserver:
      return "only a client on the server's own machine may observe, and the server is said to be "
             "at '" +
             host + "'. Run this there, without --server, or with 127.0.0.1 or localhost.";
    default:
      return "the library gave the unknown result " + std::to_string(result) + ".";
  }
}

void check(int result) {
  if (result != zedipc::kNotifyDone) throw Failure(reason(result));
}

std::string private_name(const std::string& command) {
  return "zedipc." + command + "." + std::to_string(getpid());
}

void wait_for_server(std::chrono::milliseconds patience) {
  const std::string nobody = private_name("nobody");
  Answer answer;
  const Clock::time_point end = Clock::now() + patience;
  for (int number = 1; Clock::now() < end; ++number) {
    check(zedipc::ipcNotify(nobody, kHandled, number, 0, nobody));
    if (answer.came(number, std::min(end, Clock::now() + kBetweenQuestions))) return;
  }
  throw Failure(
      "the notification server at " + printable(server_host()) +
      " does not answer. A client that has stopped reading holds it up, or it is stopped.");
}

void silence_log_notice() {
  for (const char* variable : {"IPC_LOGMASK", "NFY_LOGMASK"}) {
    if (std::getenv(variable) != nullptr) return;
  }
  const int saved = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (saved != -1 && nowhere != -1) {
    dup2(nowhere, STDERR_FILENO);
    { const zedipc::TCP logs_when_it_goes; }
    dup2(saved, STDERR_FILENO);
  }
  if (saved != -1) close(saved);
  if (nowhere != -1) close(nowhere);
}

}  // namespace command

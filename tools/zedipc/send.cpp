// SPDX-License-Identifier: MIT
// zedipc send: one notification, the same one several times, or one for each line of input.
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zedipc/notify.h>

#include <functional>
#include <future>
#include <thread>
#include <utility>

#include "zedipc/client.h"
#include "zedipc/commands.h"
#include "zedipc/inbox.h"
#include "zedipc/json_text.h"
#include "zedipc/lines.h"
#include "zedipc/output.h"
#include "zedipc/text.h"

namespace command {

namespace {

// The server's limit for a whole message. It drops a longer one silently.
constexpr std::size_t kLongestMessage = 524288;
constexpr std::size_t kServersShare = 25;
// How long a call may still take once a signal has come. If the server reads, it takes
// less.
constexpr std::chrono::milliseconds kGrace{500};

zedipc::JSObject parameter_of(const SendOptions& options) {
  if (!options.parameter && !options.text) return {};
  const std::string text = options.json == "-" ? read_file("-") : options.json;
  if (options.text) return text;
  return read_json(text, options.json == "-" ? "standard input" : "the parameter");
}

// As the library writes it.
std::string written(const SendOptions& options, const zedipc::JSObject& parameter) {
  zedipc::JSObject message;
  message("type") = "notify";
  message("from") = options.from;
  message("to") = options.to;
  message("notification") = options.notification;
  message("parameter") = parameter;
  message("flags") = options.flags;
  return message.dump();
}

// Throws Failure for what the server would drop silently.
void check_message(const SendOptions& options, const zedipc::JSObject& parameter) {
  const std::string text = written(options, parameter);
  if (text.size() > kLongestMessage - kServersShare) {
    throw Failure(
        "the parameter is too long: a message has 524288 bytes at the most, and the "
        "server would pass over this one without a word");
  }
  if (zedipc::JSObject().parse(text.c_str()) < 0) {
    throw Failure(
        "the parameter has a number that is too large: it would be sent as 'inf', which is no "
        "JSON, and the server would pass over the message without a word");
  }
}

void notify(const SendOptions& options, const zedipc::JSObject& parameter) {
  check(
      zedipc::ipcNotify(options.to, options.notification, parameter, options.flags, options.from));
}

// Sends, and watches meanwhile for signals and for the news that nobody took a message.
class Sender {
 public:
  Sender(const SendOptions& options, Inbox& inbox) : options_(options), inbox_(inbox) {}

  // Sends the parameter as often as asked, unless a signal ends that.
  void repeat(const zedipc::JSObject& parameter) {
    check_message(options_, parameter);
    call([&] { notify(options_, parameter); });
    sent_ = true;
    if (options_.count == 1) return;
    catch_signals();
    if (options_.every > 0) {
      for (unsigned int sent = 1; sent < options_.count && pause(); ++sent) send_one(parameter);
      return;
    }
    call([options = options_, parameter] {
      for (unsigned int sent = 1; sent < options.count && !Inbox::asked_to_end(); ++sent) {
        notify(options, parameter);
      }
    });
  }

  // Sends each line of standard input, unless a signal ends that. Throws Failure at a line
  // that cannot be sent, once the lines before it have been.
  void send_lines() {
    catch_signals();
    Lines lines;
    for (;;) {
      std::vector<zedipc::JSObject> parameters;
      try {
        while (const auto line = lines.next()) parameters.push_back(parameter_in(*line));
      } catch (const Failure&) {
        send_each(parameters);
        settle();
        throw;
      }
      send_each(parameters);
      if (!wait_for_input() || !lines.read()) return;
    }
  }

  // Returns when the server has taken what was sent: a process that ends at once could take
  // back what the server has not read yet.
  void settle() {
    if (sent_) call([] { wait_for_server(); });
  }

  // Waits until then for the news that nobody took a message, unless it has come already.
  bool is_refused(Clock::time_point until) {
    catch_signals();
    while (!refused_ && !Inbox::asked_to_end() && Clock::now() < until) note(inbox_.wait(until));
    return refused_;
  }

 private:
  // From now on signals end the wait. Until then they end the process.
  void catch_signals() {
    inbox_.catch_signals();
    catches_signals_ = true;
  }

  // Makes a call that blocks while the server does not read. If signals are caught, another
  // thread makes it, and may still be in it after one ends the wait: so the call must own
  // what it uses.
  void call(const std::function<void()>& blocking) {
    if (!catches_signals_) return blocking();
    auto promise = std::make_shared<std::promise<void>>();
    std::future<void> result = promise->get_future();
    std::thread([blocking, promise, &inbox = inbox_] {
      try {
        blocking();
        promise->set_value();
      } catch (...) {
        promise->set_exception(std::current_exception());
      }
      inbox.wake();
    }).detach();
    while (result.wait_for(Inbox::asked_to_end() ? kGrace : kGrace.zero()) !=
           std::future_status::ready) {
      if (Inbox::asked_to_end()) {
        throw Failure("interrupted before the server had taken all that was sent");
      }
      note(inbox_.wait(Clock::time_point::max()));
    }
    result.get();
  }

  void send_one(const zedipc::JSObject& parameter) {
    call([options = options_, parameter] { notify(options, parameter); });
    sent_ = true;
  }

  void send_each(const std::vector<zedipc::JSObject>& parameters) {
    if (parameters.empty()) return;
    if (options_.every > 0) {
      for (const zedipc::JSObject& parameter : parameters) {
        if (sent_ && !pause()) return;
        send_one(parameter);
      }
      return;
    }
    sent_ = true;
    call([options = options_, parameters] {
      for (const zedipc::JSObject& parameter : parameters) {
        if (!Inbox::asked_to_end()) notify(options, parameter);
      }
    });
  }

  [[nodiscard]] zedipc::JSObject parameter_in(const Lines::Line& line) const {
    zedipc::JSObject parameter =
        options_.text ? line.text : read_json(line.text, "standard input", line.number);
    check_message(options_, parameter);
    return parameter;
  }

  // Pauses between two messages; says whether to go on.
  bool pause() {
    const auto next = Clock::now() + std::chrono::milliseconds(options_.every);
    while (!Inbox::asked_to_end() && Clock::now() < next) note(inbox_.wait(next));
    return !Inbox::asked_to_end();
  }

  // Waits until standard input can be read; says whether to go on.
  bool wait_for_input() {
    inbox_.watch_input(true);
    while (!Inbox::asked_to_end() && !Inbox::has_input()) {
      note(inbox_.wait(Clock::time_point::max()));
    }
    inbox_.watch_input(false);
    return !Inbox::asked_to_end();
  }

  void note(const std::optional<Message>& message) {
    if (message && message->to == options_.to && message->notification == options_.notification) {
      refused_ = true;
    }
  }

  const SendOptions options_;
  Inbox& inbox_;
  bool catches_signals_ = false;
  bool sent_ = false;
  bool refused_ = false;
};

// Whether a program has written something into a pipe that is standard input.
bool input_was_left() {
  struct stat status {};
  int unread = 0;
  return fstat(STDIN_FILENO, &status) == 0 && S_ISFIFO(status.st_mode) &&
         ioctl(STDIN_FILENO, FIONREAD, &unread) == 0 && unread > 0;
}

}  // namespace

int send(const SendOptions& options) {
  Inbox& inbox = Inbox::instance();
  inbox.ignore_output();  // there is none
  if (options.wait >= 0) zedipc::ipcRegisterUnicastError(Inbox::on_refusal, &inbox);
  Sender sender(options, inbox);
  if (options.lines) {
    sender.send_lines();
  } else {
    sender.repeat(parameter_of(options));
  }
  sender.settle();
  if (!options.parameter && !options.lines && input_was_left()) {
    say("nothing of standard input was sent: give - as the parameter to send it");
  }
  if (options.wait < 0) return kDone;
  const std::string who =
      " takes " + printable(options.notification) + " for " + printable(options.to);
  if (sender.is_refused(Clock::now() + std::chrono::milliseconds(options.wait))) {
    throw Failure("nobody" + who);
  }
  if (Inbox::asked_to_end()) {
    throw Failure("interrupted before it was known whether anybody" + who);
  }
  return kDone;
}

}  // namespace command

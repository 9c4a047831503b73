// SPDX-License-Identifier: MIT
// zedipc ping: how long a notification takes through the server and back.
#include <zedipc/notify.h>

#include <map>

#include "zedipc/client.h"
#include "zedipc/commands.h"
#include "zedipc/inbox.h"
#include "zedipc/output.h"
#include "zedipc/statistics.h"
#include "zedipc/text.h"

namespace command {

namespace {

constexpr char kPing[] = "zedipc.ping";
constexpr std::chrono::seconds kForTheLast{1};  // a stray reply is given that long

class Ping {
 public:
  explicit Ping(Inbox& inbox) : inbox_(inbox), name_(private_name("ping")) {
    zedipc::ipcRegisterUnicastError(Inbox::on_refusal, &inbox);
    check(zedipc::ipcRegisterNotificationCB(kPing, Inbox::on_notification, &inbox, 0, name_));
    wait_for_server();
  }

  // Sends the next one.
  void send() {
    const int number = ++sent_;
    pending_[number] = Clock::now();
    if (zedipc::ipcNotify(name_, kPing, number, 0, name_) == zedipc::kNotifyDone) return;
    pending_.erase(number);
    output_.line(begin(number) + output_.paint(Colour::kRed, "the server is not there"));
  }

  // Prints what comes back until then, or until all have come if that is enough.
  void receive(Clock::time_point until, bool all_is_enough) {
    while (!(all_is_enough && pending_.empty())) {
      const auto message = inbox_.wait(until);
      if (!message) return;
      note(*message);
      if (Clock::now() >= until) return;
    }
  }

  [[nodiscard]] int sent() const { return sent_; }

  // Prints the last words; gives the exit status.
  [[nodiscard]] int summarise() const {
    const auto received = static_cast<int>(trips_.count());
    output_.line("--- " + printable(server_host()) + " ---");
    output_.line(std::to_string(sent_) + " sent, " + std::to_string(received) + " received, " +
                 std::to_string(sent_ == 0 ? 0 : 100 * (sent_ - received) / sent_) + "% lost");
    if (received == 0) return kFailed;
    output_.line(trips_.summary());
    return kDone;
  }

 private:
  static std::string begin(int number) { return "seq=" + std::to_string(number) + " "; }

  void note(const Message& message) {
    const int number = message.parameter.getInt();
    const auto found = pending_.find(number);
    if (message.notification != kPing || found == pending_.end()) return;
    const std::chrono::duration<double, std::milli> took = message.arrived - found->second;
    pending_.erase(found);
    if (message.refused) {
      output_.line(begin(number) + output_.paint(Colour::kRed,
                                                 "came back: the server's rules do "
                                                 "not admit " +
                                                     std::string(kPing)));
      return;
    }
    trips_.add(took.count());
    output_.line(begin(number) + "time=" + milliseconds_text(took.count()));
  }

  Inbox& inbox_;
  const std::string name_;
  Output output_;
  RoundTrips trips_;
  std::map<int, Clock::time_point> pending_;
  int sent_ = 0;
};

}  // namespace

int ping(const PingOptions& options) {
  Inbox& inbox = Inbox::instance();
  Ping ping(inbox);
  inbox.catch_signals();
  const auto last = static_cast<int>(options.count);
  Clock::time_point next = Clock::now();
  while (!Inbox::asked_to_end() && (last == 0 || ping.sent() < last)) {
    ping.send();
    next += std::chrono::milliseconds(options.interval);
    const bool is_last = ping.sent() == last;
    ping.receive(is_last ? Clock::now() + kForTheLast : next, is_last);
  }
  return ping.summarise();
}

}  // namespace command

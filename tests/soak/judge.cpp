// SPDX-License-Identifier: MIT
#include "soak/judge.h"

#include <algorithm>
#include <climits>
#include <set>
#include <utility>

namespace zedipc::soak {

namespace {

// A broadcast is handled, and then read. A unicast that comes back is handled and read
// again each time: twice is allowed for.
constexpr int kBroadcastRounds = 2;
constexpr int kUnicastRounds = 6;
// Until nothing can come any more.
constexpr int kLastRounds = 10;

class Judge {
 public:
  Judge(const History& history, const Message& message)
      : history_(history),
        message_(message),
        sender_(history.lives.at(life_of(message.id))),
        finish_(history.rounds.after(sent(),
                                     message.broadcast() ? kBroadcastRounds : kUnicastRounds)) {}

  Verdict run() {
    check_receipts();
    if (message_.result != 0) {
      check_failed_call();
    } else if (message_.broadcast()) {
      check_broadcast();
    } else {
      check_unicast();
    }
    check_second_reports();
    check_observers();
    if (!verdict_.problems.empty()) verdict_.outcome = Verdict::kWrong;
    return std::move(verdict_);
  }

  // A sender that was killed in the call may have sent until then.
  [[nodiscard]] Time sent() const {
    return message_.sent != kNever ? message_.sent : sender_.kill_end;
  }

 private:
  void complain(const std::string& problem) { verdict_.problems.push_back(problem); }

  [[nodiscard]] bool inside() const { return message_.name == kInside; }
  [[nodiscard]] bool refused_at_border() const { return sender_.remote && inside(); }

  [[nodiscard]] bool eligible(const Stretch& stretch) const {
    const auto life = history_.lives.find(stretch.life);
    const bool remote = life != history_.lives.end() && life->second.remote;
    return meant_for(message_, stretch.record) && !refused_at_border() && !(remote && inside());
  }

  template <typename Predicate>
  const Stretch* find(Predicate predicate) const {
    const auto& all = history_.registrations.all();
    const auto found = std::find_if(all.begin(), all.end(), predicate);
    return found == all.end() ? nullptr : &*found;
  }

  // ---- Windows

  // Of a message that is finished, everything has been told by then.
  [[nodiscard]] Time told() const { return finish_ + history_.slowness; }

  [[nodiscard]] bool killed_before_finish(const ClientLife& life) const {
    return life.kill_begin <= told();
  }

  [[nodiscard]] bool sender_killed() const { return killed_before_finish(sender_); }

  [[nodiscard]] bool server_killed(Time until) const {
    return std::any_of(
        history_.server_kills.begin(), history_.server_kills.end(), [&](const ServerKill& kill) {
          const auto back = kill.back.find(life_of(message_.id));
          const bool known = back != kill.back.end() && back->second <= message_.sending;
          return kill.begin <= until && !known && sender_.started < kill.end;
        });
  }

  // Whether a client was killed by then that the message may have been handed to.
  // Observers that stood have seen such a handing over.
  [[nodiscard]] bool receiver_killed(Time until) const {
    const Stretch* const watcher = find([&](const Stretch& s) { return watched(s); });
    return find([&](const Stretch& stretch) {
             return eligible(stretch) && stretch.possible(message_.sending, finish_) &&
                    history_.lives.at(stretch.life).kill_begin <= until &&
                    (watcher == nullptr || handed_to(*watcher, stretch.record.to));
           }) != nullptr;
  }

  [[nodiscard]] bool sent_to_dying() const {
    const auto& kills = history_.server_kills;
    return receiver_killed(message_.sending) ||
           std::any_of(kills.begin(), kills.end(), [&](const ServerKill& kill) {
             return kill.begin <= message_.sending && message_.sending < kill.end;
           });
  }

  [[nodiscard]] bool handed_to(const Stretch& watcher, const std::string& name) const {
    const auto seen = message_.seen.find(watcher.life);
    return seen != message_.seen.end() &&
           std::count(seen->second.begin(), seen->second.end(), name) != 0;
  }

  // ---- Rules

  void check_receipts() {
    std::set<std::pair<Life, Record>> once;
    for (const Receipt& receipt : message_.receipts) {
      const std::string who = history_.name(receipt.life);
      if (receipt.altered) complain("came altered to " + who);
      if (!once.insert({receipt.life, receipt.record}).second) complain("came twice to " + who);
      const Stretch* const stretch = find([&](const Stretch& s) {
        return s.life == receipt.life && s.record == receipt.record && eligible(s) &&
               s.possible(message_.sending, receipt.time);
      });
      if (stretch == nullptr) complain("came to " + who + ", which it was not for");
    }
  }

  void check_failed_call() {
    verdict_.outcome = message_.broadcast() ? Verdict::kBroadcast : Verdict::kRefused;
    if (!message_.receipts.empty()) complain("was received although the call had failed");
    if (!server_killed(sent())) complain("could not be sent while the server ran");
    if (!message_.broadcast() && reports() != 1 && !sender_killed()) {
      complain("could not be sent, but was not reported once");
    }
  }

  [[nodiscard]] std::size_t reports(int slot = 0) const {
    return static_cast<std::size_t>(
        std::count_if(message_.reports.begin(), message_.reports.end(),
                      [&](const Report& report) { return report.slot == slot; }));
  }

  void check_broadcast() {
    verdict_.outcome = Verdict::kBroadcast;
    if (reports() != 0) complain("was reported, although it is a broadcast");
    const bool certain = !sender_killed() && !server_killed(finish_);
    if (certain) {
      for (const Stretch& stretch : history_.registrations.all()) demand(stretch);
    }
    verdict_.free = static_cast<unsigned>(message_.receipts.size()) - verdict_.demanded;
  }

  [[nodiscard]] bool owed(const Stretch& stretch) const {
    return eligible(stretch) && stretch.stood(message_.sending, finish_) &&
           !killed_before_finish(history_.lives.at(stretch.life));
  }

  void demand(const Stretch& stretch) {
    if (!owed(stretch)) return;
    const bool there = std::any_of(
        message_.receipts.begin(), message_.receipts.end(), [&](const Receipt& receipt) {
          return receipt.life == stretch.life && receipt.record == stretch.record;
        });
    if (there) {
      ++verdict_.demanded;
    } else {
      complain("did not come to " + history_.name(stretch.life) + " as " + stretch.record.to);
    }
  }

  void check_unicast() {
    if (message_.receipts.size() > 1) complain("was received more than once");
    if (reports() > 1) complain("was reported more than once");
    if (!message_.receipts.empty() && reports() != 0) complain("was received and reported");
    if (!message_.receipts.empty()) {
      verdict_.outcome = handings() > 1 ? Verdict::kReturned : Verdict::kDelivered;
      check_priority(message_.receipts.front());
    } else if (reports() != 0) {
      verdict_.outcome = handings() > 0 ? Verdict::kGivenUp : Verdict::kReported;
      check_report();
    } else {
      excuse_loss();
    }
  }

  void excuse_loss() {
    if (sent_to_dying()) {
      verdict_.outcome = Verdict::kSentToDying;
    } else if (server_killed(finish_)) {
      verdict_.outcome = Verdict::kLostServer;
    } else if (sender_killed()) {
      verdict_.outcome = Verdict::kLostSender;
    } else if (receiver_killed(told())) {
      verdict_.outcome = Verdict::kLostReceiver;
    } else {
      complain("was lost");
    }
  }

  // Where a pair has several slots the server's priority is not that of one of them.
  [[nodiscard]] bool alone(const Stretch& stretch, Time until) const {
    return find([&](const Stretch& other) {
             return other.life == stretch.life && other.record.to == stretch.record.to &&
                    other.record.name == stretch.record.name &&
                    other.record.slot != stretch.record.slot &&
                    other.possible(message_.sending, until);
           }) == nullptr;
  }

  void check_priority(const Receipt& receipt) {
    int highest = INT_MIN;  // that the receiver may have had
    for (const Stretch& stretch : history_.registrations.all()) {
      if (stretch.life == receipt.life && eligible(stretch) &&
          stretch.possible(message_.sending, receipt.time)) {
        highest = std::max(highest, stretch.priority);
      }
    }
    const Stretch* const better = find([&](const Stretch& stretch) {
      return eligible(stretch) && stretch.priority > highest &&
             stretch.stood(message_.sending, receipt.time) && alone(stretch, receipt.time);
    });
    if (better != nullptr) complain("went past " + history_.name(better->life));
  }

  void check_report() {
    const Time time = message_.reports.front().time;
    const Stretch* const taker = find([&](const Stretch& stretch) {
      return eligible(stretch) && stretch.stood(message_.sending, time);
    });
    if (taker != nullptr) complain("was reported though " + history_.name(taker->life) + " stood");
  }

  void check_second_reports() {
    if (message_.broadcast()) return;
    if (reports(1) > reports()) complain("was reported more often to the second callback");
    if (reports() == 0 || reports(1) != 0 || sender_killed()) return;
    const bool stood = find([&](const Stretch& stretch) {
                         return stretch.life == life_of(message_.id) &&
                                stretch.record == kSecondErrorCallback &&
                                stretch.stood(message_.sending, finish_);
                       }) != nullptr;
    if (stood) complain("was not reported to the second callback");
  }

  [[nodiscard]] bool watched(const Stretch& stretch) const {
    return stretch.record == kObserver && stretch.stood(message_.sending, finish_) &&
           !killed_before_finish(history_.lives.at(stretch.life));
  }

  [[nodiscard]] std::size_t handings() const {
    std::size_t most = 0;
    for (const auto& [life, names] : message_.seen) most = std::max(most, names.size());
    return most;
  }

  // The pairs that a broadcast was owed to; observers hear of each.
  [[nodiscard]] std::size_t owed_rows() const {
    std::set<std::pair<Life, std::string>> rows;
    for (const Stretch& stretch : history_.registrations.all()) {
      if (owed(stretch)) rows.insert({stretch.life, stretch.record.to});
    }
    return rows.size();
  }

  void check_observers() {
    if (message_.result != 0 || sender_killed() || server_killed(finish_)) return;
    const std::size_t least = message_.broadcast() ? owed_rows() : message_.receipts.size();
    const std::size_t all = handings();
    for (const Stretch& stretch : history_.registrations.all()) {
      if (!watched(stretch)) continue;
      ++verdict_.observed;
      const auto seen = message_.seen.find(stretch.life);
      const std::size_t count = seen == message_.seen.end() ? 0 : seen->second.size();
      if (count == all && count >= least) continue;
      complain("was seen " + std::to_string(count) + " times by the observer " +
               history_.name(stretch.life) + ", at least " + std::to_string(std::max(least, all)) +
               " expected");
    }
  }

  const History& history_;
  const Message& message_;
  const ClientLife& sender_;
  const Time finish_;
  Verdict verdict_;
};

}  // namespace

Verdict judge(const History& history, const Message& message) {
  return Judge(history, message).run();
}

Time settled(const History& history, const Message& message) {
  const Time last = history.rounds.after(Judge(history, message).sent(), kLastRounds);
  return last == kNever ? kNever : last + history.slowness;
}

}  // namespace zedipc::soak

// SPDX-License-Identifier: MIT
// The account of all messages of a run.
#pragma once

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "soak/history.h"
#include "soak/judge.h"

namespace zedipc::soak {

struct Totals {
  std::map<Verdict::Outcome, unsigned long> outcomes;
  unsigned long demanded = 0;
  unsigned long free = 0;
  unsigned long observed = 0;

  [[nodiscard]] unsigned long count(Verdict::Outcome outcome) const;
  [[nodiscard]] unsigned long unicasts() const;
  // Those of which nothing is known.
  [[nodiscard]] unsigned long lost() const;
};

class Account {
 public:
  explicit Account(Time origin) : origin_(origin) {}
  Account(Time origin, Time slowness) : origin_(origin) { history_.slowness = slowness; }

  // To be told of all events in the order of their times.
  void note(const Event& event);

  // Judges what is settled by now. All events up to `time` have been told.
  void judge_settled(Time time);

  // How many messages sent until then are still to be judged.
  [[nodiscard]] std::size_t open(Time until = kNever) const;

  [[nodiscard]] const Totals& totals() const { return totals_; }
  [[nodiscard]] const History& history() const { return history_; }
  // What was wrong, each with its story.
  [[nodiscard]] const std::vector<std::string>& problems() const { return problems_; }

 private:
  void note_message(const Event& event);
  void note_trip(const Message& message, const Event& receipt);
  void note_registration(const Event& event);
  void note_process(const Event& event);
  bool is_closed(Id id) const;
  void close(const Message& message);
  void forget();

  Time origin_;
  History history_;
  std::map<Id, Message> messages_;
  std::unordered_map<Life, std::vector<bool>> closed_;  // by the counter
  Totals totals_;
  std::vector<std::string> problems_;
};

}  // namespace zedipc::soak

// SPDX-License-Identifier: MIT
// Who was registered for what, and when: when perhaps, and when for certain.
#pragma once

#include <list>
#include <map>
#include <utility>

#include "soak/event.h"

namespace zedipc::soak {

// One registration with one priority, on one server.
struct Stretch {
  Life life;
  Record record;
  int priority;
  Time asked;              // the call that made it began
  Time answered = kNever;  // it returned 0
  Time firm = kNever;      // a trip that began after that has ended: the server knows
  Time touched = kNever;   // a call began that changes it, or client or server was killed
  Time dropped = kNever;   // the call that ended it returned
  Time gone = kNever;      // the server knows that too

  [[nodiscard]] bool stood(Time from, Time until) const { return firm <= from && touched >= until; }
  [[nodiscard]] bool possible(Time from, Time until) const {
    return asked <= until && gone >= from;
  }
};

// Told of all events in the order of their times.
class Registrations {
 public:
  void begin_register(const Event& event);
  void end_register(const Event& event);
  void begin_unregister(const Event& event);
  void end_unregister(const Event& event);
  void trip(Life life, Time begin, Time end);
  void killed(Life life, Time begin, Time end);
  void server_killed(Time begin, Time end);

  [[nodiscard]] const std::list<Stretch>& all() const { return all_; }

  // Nobody asks for what was before this any more.
  void forget(Time before);

 private:
  using Key = std::pair<Life, Record>;

  std::list<Stretch> all_;
  std::map<Key, Stretch*> current_;  // the one in force, or the last one known to be
  std::map<Key, Stretch*> asked_;    // the one whose call has not returned
};

}  // namespace zedipc::soak

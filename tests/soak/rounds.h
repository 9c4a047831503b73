// SPDX-License-Identifier: MIT
// Rounds: the measure of what must have happened by now.
//
// A client makes a trip when it receives a message that it sent itself. Server and
// clients handle one connection's messages in order, so after the trip all that the
// client had sent before has been handled by the server, and all that the server had
// written to it before has been read. In a round each live client makes a trip that
// began within it. What was sent before a round is handled by its end, what was
// written to a client before it is read by its end. No time has to be guessed.
#pragma once

#include <deque>
#include <set>
#include <vector>

#include "soak/event.h"

namespace zedipc::soak {

class Rounds {
 public:
  void joined(Life life, Time time);
  void left(Life life, Time time);
  void trip(Life life, Time begin, Time end);

  // The end of the last of `count` whole rounds after `time`; kNever if it is to come.
  [[nodiscard]] Time after(Time time, int count) const;

  // The end of the newest whole round, and who keeps the next one from ending.
  [[nodiscard]] Time newest() const { return ends_.empty() ? 0 : ends_.back(); }
  [[nodiscard]] std::vector<Life> awaited() const;

  // Nobody asks for what was before this any more.
  void forget(Time before);

 private:
  void close_round(Time time);

  std::set<Life> live_;
  std::set<Life> done_;
  std::deque<Time> ends_;
};

}  // namespace zedipc::soak

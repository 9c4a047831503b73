// SPDX-License-Identifier: MIT
// Round trips, and what can be said of all of them.
#pragma once

#include <string>
#include <vector>

namespace command {

class RoundTrips {
 public:
  void add(double milliseconds) { times_.push_back(milliseconds); }
  [[nodiscard]] std::size_t count() const { return times_.size(); }

  // As in "round trip min/median/p99/max = 0.110/0.123/0.310/0.310 ms"; "" if there are
  // none. The p99 is the shortest time that at least 99 % do not exceed.
  [[nodiscard]] std::string summary() const;

 private:
  std::vector<double> times_;
};

// As in "0.123 ms".
std::string milliseconds_text(double milliseconds);

}  // namespace command

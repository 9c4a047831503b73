// SPDX-License-Identifier: MIT
// Round trips, and a summary of them.
#pragma once

#include <string>
#include <vector>

namespace command {

class RoundTrips {
 public:
  void add(double milliseconds) { times_.push_back(milliseconds); }
  [[nodiscard]] std::size_t count() const { return times_.size(); }

  // As in "round trip min/median/p99/max = 0.110/0.123/0.310/0.310 ms"; "" if there are
  // none. At least 99 % take no longer than p99.
  [[nodiscard]] std::string summary() const;

 private:
  std::vector<double> times_;
};

// As in "0.123 ms".
std::string milliseconds_text(double milliseconds);

}  // namespace command

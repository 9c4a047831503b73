// SPDX-License-Identifier: MIT
// What should have arrived, and what has.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace demo {

// An arrival: a process's name, and the line that it printed about it.
using Arrival = std::pair<std::string, std::string>;

// As in "display: got paper.out from printer to 1: {"tray":3}".
std::string describe(const Arrival& arrival);

// Each arrival counts as often as it is entered: one that is expected once and comes
// twice is unexpected once.
class Ledger {
 public:
  // It must arrive, once.
  void expect(const Arrival& arrival) { expected_.insert(arrival); }
  // It may arrive, once.
  void allow(const Arrival& arrival) { allowed_.insert(arrival); }
  // Takes back an allowance; it is needed no longer, or the arrival is expected now.
  void disallow(const Arrival& arrival);

  void record(const Arrival& arrival) { arrived_.insert(arrival); }
  // How often it has arrived.
  [[nodiscard]] std::size_t count(const Arrival& arrival) const { return arrived_.count(arrival); }

  [[nodiscard]] std::vector<Arrival> missing() const;
  [[nodiscard]] std::vector<Arrival> unexpected() const;
  [[nodiscard]] const std::multiset<Arrival>& expected() const { return expected_; }

 private:
  std::multiset<Arrival> expected_;
  std::multiset<Arrival> allowed_;
  std::multiset<Arrival> arrived_;
};

}  // namespace demo

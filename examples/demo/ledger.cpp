// SPDX-License-Identifier: MIT
#include "demo/ledger.h"

#include <algorithm>
#include <iterator>

namespace demo {

namespace {

using Arrivals = std::multiset<Arrival>;

std::vector<Arrival> difference(const Arrivals& all, const Arrivals& without) {
  std::vector<Arrival> rest;
  std::set_difference(all.begin(), all.end(), without.begin(), without.end(),
                      std::back_inserter(rest));
  return rest;
}

}  // namespace

std::string describe(const Arrival& arrival) { return arrival.first + ": " + arrival.second; }

void Ledger::disallow(const Arrival& arrival) {
  const auto found = allowed_.find(arrival);
  if (found != allowed_.end()) allowed_.erase(found);
}

std::vector<Arrival> Ledger::missing() const { return difference(expected_, arrived_); }

std::vector<Arrival> Ledger::unexpected() const {
  Arrivals known = expected_;
  known.insert(allowed_.begin(), allowed_.end());
  return difference(arrived_, known);
}

}  // namespace demo

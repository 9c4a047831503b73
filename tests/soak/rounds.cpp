// SPDX-License-Identifier: MIT
#include "soak/rounds.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace zedipc::soak {

void Rounds::joined(Life life, Time time) {
  if (ends_.empty()) ends_.push_back(time);
  live_.insert(life);
}

void Rounds::left(Life life, Time time) {
  live_.erase(life);
  done_.erase(life);
  close_round(time);
}

void Rounds::trip(Life life, Time begin, Time end) {
  if (live_.count(life) == 0 || begin < newest()) return;
  done_.insert(life);
  close_round(end);
}

void Rounds::close_round(Time time) {
  if (live_.empty() || done_.size() < live_.size()) return;
  ends_.push_back(time);
  done_.clear();
}

Time Rounds::after(Time time, int count) const {
  const auto begin = std::lower_bound(ends_.begin(), ends_.end(), time);
  const auto left = std::distance(begin, ends_.end());
  return left > count ? *std::next(begin, count) : kNever;
}

std::vector<Life> Rounds::awaited() const {
  std::vector<Life> result;
  std::set_difference(live_.begin(), live_.end(), done_.begin(), done_.end(),
                      std::back_inserter(result));
  return result;
}

void Rounds::forget(Time before) {
  while (ends_.size() > 1 && ends_.front() < before) ends_.pop_front();
}

}  // namespace zedipc::soak

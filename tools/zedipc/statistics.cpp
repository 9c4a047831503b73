// SPDX-License-Identifier: MIT
// Minimum, median, 99th percentile and maximum.
#include "zedipc/statistics.h"

#include <algorithm>
#include <cstdio>

namespace command {

std::string milliseconds_text(double milliseconds) {
  char text[48];
  std::snprintf(text, sizeof text, "%.3f ms", milliseconds);
  return text;
}

std::string RoundTrips::summary() const {
  if (times_.empty()) return "";
  std::vector<double> sorted = times_;
  std::sort(sorted.begin(), sorted.end());
  const std::size_t count = sorted.size();
  const double median = (sorted[(count - 1) / 2] + sorted[count / 2]) / 2;
  const double p99 = sorted[(99 * count + 99) / 100 - 1];
  char text[160];
  std::snprintf(text, sizeof text, "round trip min/median/p99/max = %.3f/%.3f/%.3f/%.3f ms",
                sorted.front(), median, p99, sorted.back());
  return text;
}

}  // namespace command

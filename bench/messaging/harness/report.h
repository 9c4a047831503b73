// SPDX-License-Identifier: MIT
// Results as the driver reads them, one line of JSON each.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace bench {

struct Result {
  std::string work;
  double value;
  std::string unit;  // "/s" at its end means that more is better
  // Further figures by their names, for example "cpu_us".
  std::vector<std::pair<std::string, double>> others;
};

void print(const char* subject, const Result& result);

// The value that this share of the samples, from 0 to 1, does not exceed. There must be
// samples.
double quantile(std::vector<double> samples, double share);

}  // namespace bench

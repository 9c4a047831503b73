// SPDX-License-Identifier: MIT
#include "harness/report.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>

namespace bench {

void print(const char* subject, const Result& result) {
  std::printf(R"({"work": "%s", "subject": "%s", "value": %.9g, "unit": "%s")", result.work.c_str(),
              subject, result.value, result.unit.c_str());
  for (const auto& [name, value] : result.others)
    std::printf(R"(, "%s": %.9g)", name.c_str(), value);
  std::printf("}\n");
}

double quantile(std::vector<double> samples, double share) {
  const auto index = static_cast<std::size_t>(share * static_cast<double>(samples.size() - 1));
  const auto place = samples.begin() + static_cast<std::ptrdiff_t>(index);
  std::nth_element(samples.begin(), place, samples.end());
  return *place;
}

}  // namespace bench

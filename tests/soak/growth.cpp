// SPDX-License-Identifier: MIT
#include "soak/growth.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace zedipc::soak {

namespace {

namespace fs = std::filesystem;

long entries(const std::string& directory) {
  std::error_code gone;
  const fs::directory_iterator begin(directory, gone);
  return gone ? 0 : static_cast<long>(std::distance(begin, fs::directory_iterator()));
}

long status_value(const std::string& process, const std::string& key) {
  std::ifstream in(process + "/status");
  for (std::string word; in >> word;) {
    long value = 0;
    if (word == key && in >> value) return value;
  }
  return 0;
}

long median(const std::vector<Usage>& samples, long Usage::*member) {
  std::vector<long> values;
  for (const Usage& sample : samples) values.push_back(sample.*member);
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void compare(std::vector<std::string>& grown, const std::string& what, long first, long last,
             long limit) {
  if (last <= limit) return;
  grown.push_back("the server's " + what + " grew from " + std::to_string(first) + " to " +
                  std::to_string(last));
}

}  // namespace

Usage usage_of(pid_t pid) {
  const std::string process = "/proc/" + std::to_string(pid);
  return {entries(process + "/fd"), entries(process + "/task"), status_value(process, "RssAnon:")};
}

Usage typical(const std::vector<Usage>& samples) {
  return {median(samples, &Usage::descriptors), median(samples, &Usage::threads),
          median(samples, &Usage::memory)};
}

std::vector<std::string> growth(const Usage& first, const Usage& last, bool memory_is_judged) {
  std::vector<std::string> grown;
  compare(grown, "descriptors", first.descriptors, last.descriptors, first.descriptors);
  compare(grown, "threads", first.threads, last.threads, first.threads);
  if (!memory_is_judged) return grown;
  compare(grown, "memory (kB)", first.memory, last.memory,
          first.memory + first.memory / 10 + kMemorySlack);
  return grown;
}

}  // namespace zedipc::soak

// SPDX-License-Identifier: MIT
#include "harness/work.h"

#include <charconv>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace bench {

namespace {

// The least that the members of zedipc's parameter need.
constexpr std::size_t kLeastSize = 40;
constexpr std::size_t kMostSize = 500000;
constexpr int kMostReceivers = 1000;

[[noreturn]] void refuse(const std::string& name) {
  throw std::runtime_error("there is no work '" + name + "'");
}

std::vector<std::string> split(const std::string& name) {
  std::vector<std::string> parts;
  std::istringstream in(name);
  for (std::string part; std::getline(in, part, '/');) parts.push_back(part);
  return parts;
}

template <typename Number>
Number number(const std::string& name, const std::string& text, Number least, Number most) {
  Number value{};
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, value);
  if (result.ec != std::errc() || result.ptr != end || value < least || value > most) refuse(name);
  return value;
}

}  // namespace

Work parse_work(const std::string& name) {
  const std::vector<std::string> parts = split(name);
  const std::string kind = parts.empty() ? "" : parts[0];
  Work work{name, Kind::kIdle, false, 1, kLeastSize};
  if (name == "idle_wakeups") return work;
  if (parts.size() < 2) refuse(name);
  work.size = number(name, parts.back(), kLeastSize, kMostSize);
  if (kind == "unicast_latency" && parts.size() == 2) {
    work.kind = Kind::kLatency;
  } else if (kind == "unicast_flood" && parts.size() == 2) {
    work.kind = Kind::kFlood;
  } else if (kind == "broadcast" && parts.size() == 3) {
    work.kind = Kind::kBroadcast;
    work.receivers = number(name, parts[1], 1, kMostReceivers);
  } else if (kind == "round_trip" && parts.size() == 3 &&
             (parts[1] == "pipe" || parts[1] == "tcp")) {
    work.kind = Kind::kRoundTrip;
    work.tcp = parts[1] == "tcp";
  } else {
    refuse(name);
  }
  return work;
}

}  // namespace bench

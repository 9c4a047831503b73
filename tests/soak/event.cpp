// SPDX-License-Identifier: MIT
#include "soak/event.h"

#include <chrono>
#include <cstddef>
#include <sstream>

namespace zedipc::soak {

namespace {

// In the order of Event::Kind.
constexpr const char* kWords[] = {"sending",       "sent",        "received",    "altered",
                                  "reported",      "seen",        "registering", "registered",
                                  "unregistering", "unregistered"};
constexpr std::size_t kWordCount = sizeof kWords / sizeof *kWords;

bool find_kind(const std::string& word, Event::Kind& kind) {
  for (std::size_t i = 0; i < kWordCount; ++i) {
    if (word != kWords[i]) continue;
    kind = static_cast<Event::Kind>(i);
    return true;
  }
  return false;
}

}  // namespace

Time now() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

std::string to_line(const Event& event) {
  std::ostringstream out;
  out << kWords[event.kind] << ' ' << event.time << ' ' << event.id << ' '
      << (event.record.to.empty() ? "-" : event.record.to) << ' '
      << (event.record.name.empty() ? "-" : event.record.name) << ' ' << event.record.slot << ' '
      << event.value;
  return out.str();
}

std::optional<Event> parse_line(const std::string& line, Life life) {
  std::istringstream in(line);
  std::string word;
  Event event{};
  event.life = life;
  in >> word >> event.time >> event.id >> event.record.to >> event.record.name >>
      event.record.slot >> event.value;
  if (!in || !find_kind(word, event.kind)) return std::nullopt;
  return event;
}

}  // namespace zedipc::soak

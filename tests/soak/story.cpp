// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdio>
#include <map>
#include <sstream>

#include "soak/judge.h"

namespace zedipc::soak {

namespace {

// What else happened this long before and after is part of the story.
constexpr Time kAround = 2 * kSecond;

class Story {
 public:
  Story(const History& history, const Message& message) : history_(history), message_(message) {}

  void tell() {
    const std::string sender = history_.name(life_of(message_.id));
    add(message_.sending, sender + " sends " + message_.name + " to " + message_.to);
    if (message_.sent != kNever) {
      add(message_.sent, "the call returns " + std::to_string(message_.result));
    }
    for (const Receipt& receipt : message_.receipts) {
      add(receipt.time, history_.name(receipt.life) + " receives it as " + receipt.record.to + "/" +
                            std::to_string(receipt.record.slot));
    }
    for (const Report& report : message_.reports) {
      add(report.time, sender + " gets a unicast error/" + std::to_string(report.slot));
    }
    tell_kills();
    tell_registrations();
  }

  [[nodiscard]] std::string text(Time origin) const {
    std::ostringstream out;
    for (const auto& [time, line] : lines_) {
      char stamp[32];
      std::snprintf(stamp, sizeof stamp, "  %12.3f ms  ",
                    static_cast<double>(time - origin) / kMillisecond);
      out << stamp << line << '\n';
    }
    for (const auto& [life, names] : message_.seen) {
      out << "  " << history_.name(life) << " saw it go to";
      for (const std::string& name : names) out << ' ' << name;
      out << '\n';
    }
    return out.str();
  }

 private:
  void add(Time time, const std::string& line) { lines_.emplace(time, line); }

  void add_near(Time time, const std::string& line) {
    if (time != kNever && time > message_.sending - kAround && time < message_.sending + kAround) {
      add(time, line);
    }
  }

  void tell_kills() {
    for (const ServerKill& kill : history_.server_kills)
      add_near(kill.begin, "the server is killed");
    for (const auto& [life, client] : history_.lives) {
      add_near(client.kill_begin, history_.name(life) + " is killed");
    }
  }

  void tell_registrations() {
    for (const Stretch& stretch : history_.registrations.all()) {
      if (!meant_for(message_, stretch.record)) continue;
      const std::string who = history_.name(stretch.life) + " as " + stretch.record.to + "/" +
                              std::to_string(stretch.record.slot) + ", priority " +
                              std::to_string(stretch.priority);
      add_near(stretch.asked, who + ": being registered");
      add_near(stretch.firm, who + ": known to the server");
      add_near(stretch.touched, who + ": being changed");
      add_near(stretch.dropped, who + ": over");
    }
  }

  const History& history_;
  const Message& message_;
  std::multimap<Time, std::string> lines_;
};

}  // namespace

std::string describe(const History& history, const Message& message, Time origin) {
  Story story(history, message);
  story.tell();
  return story.text(origin);
}

}  // namespace zedipc::soak

// SPDX-License-Identifier: MIT
// How often notifications go from whom to whom.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "zedipc/inbox.h"

namespace command {

class Traffic {
 public:
  void add(const Message& message);

  // Ends an interval of that many seconds. Its rates are shown until the next one ends.
  void end_interval(double seconds);

  // A table with a heading, rows in the order asked for ("count", "rate", "time", "name"),
  // of at most so many lines, each of at most so many characters.
  [[nodiscard]] std::vector<std::string> table(const std::string& sort, std::size_t lines,
                                               std::size_t columns) const;

 private:
  // The notification, the sender and the receiver.
  using Key = std::tuple<std::string, std::string, std::string>;
  struct Count {
    unsigned long total = 0;
    unsigned long since = 0;  // in the stretch that has not ended yet
    double rate = 0;          // a second
    std::chrono::system_clock::time_point last;
  };
  using Row = std::pair<Key, Count>;

  [[nodiscard]] std::vector<Row> sorted(const std::string& sort) const;
  [[nodiscard]] std::string line(const Row& row, std::size_t notification_width) const;

  std::map<Key, Count> counts_;
  unsigned long total_ = 0;
  double rate_ = 0;
};

}  // namespace command
